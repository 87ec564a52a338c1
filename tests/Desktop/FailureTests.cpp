// What goes wrong on a plain day, provoked for real: the state and the words it ends in, and that the next dictation
// can begin at once.

#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <QFile>
#include <QJsonDocument>
#include <QTcpServer>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

/// What the program shows for a key of its catalogues.
QString words(const char* key) {
    QFile catalogue(QStringLiteral(QUILLO_ENGLISH_CATALOGUE));
    EXPECT_TRUE(catalogue.open(QIODevice::ReadOnly));
    const auto text = QJsonDocument::fromJson(catalogue.readAll()).object().value(QString::fromLatin1(key)).toString();
    EXPECT_FALSE(text.isEmpty()) << key;
    return text;
}

class Failure : public testing::Test {
protected:
    void TearDown() override {
        if (HasFailure() && m_desktop) {
            m_desktop->session.keepFolder();
            std::cerr << "logs: " << m_desktop->session.folder().toStdString() << "\n";
        }
        m_desktop.reset();
    }

    ScriptedDesktop& begin(ScriptedDesktop::Options options = {}) {
        m_desktop.emplace(std::move(options));
        return *m_desktop;
    }

    QString word() { return m_desktop->session.status().value(QStringLiteral("status")).toString(); }
    QString message() { return m_desktop->session.status().value(QStringLiteral("message")).toString(); }
    QString detail() { return m_desktop->session.status().value(QStringLiteral("detail")).toString(); }
    QString reasonOf(const QJsonObject& run) { return run.value(QStringLiteral("reason")).toString(); }

    /// Presses the key, waits until the run has ended on its own or by the release, and returns its reason.
    QString failingRun(bool release = true) {
        const auto before = m_desktop->lastRunId();
        m_desktop->press();
        if (release) {
            waitUntil([&] { return word() != u"idle"; }, 2s);
            m_desktop->speak();
            m_desktop->release();
        }
        return reasonOf(m_desktop->awaitRun(before));
    }

    void expectTheNextArrives(const TargetWindow& field) {
        activate(m_desktop->session, field);
        const auto before = field.content();
        const auto run = m_desktop->dictate(QStringLiteral("Back again."));
        EXPECT_EQ(reasonOf(run), QStringLiteral("completed"));
        EXPECT_TRUE(waitUntil([&] { return field.content() == before + "Back again."; }, 5s))
            << field.content().toStdString();
    }

    std::optional<ScriptedDesktop> m_desktop;
};

TEST_F(Failure, WithoutANetworkNothingIsRecorded) {
    // A separate network namespace has no route; the address never answers.
    begin(
        {.serverHost = QStringLiteral("192.0.2.1:443"), .wrapper = {QStringLiteral("unshare"), QStringLiteral("-n")}});
    EXPECT_EQ(failingRun(), QStringLiteral("failed(no_network)"));
    EXPECT_EQ(message(), words("error.connectionFailed"));
    EXPECT_EQ(detail(), QStringLiteral("No internet connection"));
    EXPECT_EQ(m_desktop->logged(QStringLiteral("🎤 Starting audio capture")), 0) << "the microphone was opened";
    // Again: the application must recover from a failure.
    EXPECT_EQ(failingRun(), QStringLiteral("failed(no_network)"));
}

TEST_F(Failure, ADeadServerAndASilentOneCostNoAudio) {
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    const auto silentHost = QStringLiteral("127.0.0.1:%1").arg(silent.serverPort());
    begin({.serverHost = silentHost});
    EXPECT_EQ(failingRun(), QStringLiteral("completed(stop_before_session_started)"));
    EXPECT_TRUE(m_desktop->session.waitForStatus(QStringLiteral("idle")));
    EXPECT_EQ(m_desktop->logged(QStringLiteral("🎧 Audio retained for PENDING recovery: ")), 1) << "the audio is lost";
    const auto recordings = m_desktop->logged(QStringLiteral("🎬 Recording START"));
    silent.close();
    EXPECT_EQ(failingRun(), QStringLiteral("completed(offline_stop)"));
    EXPECT_TRUE(m_desktop->session.waitForStatus(QStringLiteral("idle")));
    EXPECT_EQ(m_desktop->logged(QStringLiteral("🎧 Audio retained for PENDING recovery: ")), 2) << "the audio is lost";
    EXPECT_EQ(m_desktop->logged(QStringLiteral("🎬 Recording START")), recordings + 1);
    EXPECT_EQ(m_desktop->logged(QStringLiteral("🏁 Recording END")), recordings + 1);
}

TEST_F(Failure, AMicrophoneThatGoesIsNamedAndItsReturnIsEnough) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openQtField(session);
    activate(session, field);
    const auto unplug = [&] {
        session.run(QStringLiteral("pactl"), {QStringLiteral("unload-module"), QStringLiteral("module-remap-source")});
    };
    const auto plug = [&] {
        session.run(QStringLiteral("pactl"),
                    {QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                     QStringLiteral("master=mouth.monitor"), QStringLiteral("source_name=microphone")});
        session.run(QStringLiteral("pactl"), {QStringLiteral("set-default-source"), QStringLiteral("microphone")});
    };
    desktop.say(QStringLiteral("Half a sentence."));
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    desktop.speak();
    unplug();
    desktop.release();
    const auto run = desktop.awaitRun(before);
    EXPECT_EQ(reasonOf(run), QStringLiteral("failed(microphone_lost)"));
    EXPECT_EQ(message(), words("error.audioCaptureFailed"));
    EXPECT_TRUE(waitUntil([&] { return field.content() == "Half a sentence."; }, 5s))
        << "what was said before is lost: " << field.content().toStdString();

    plug();
    expectTheNextArrives(field);
}

TEST_F(Failure, WithoutASoundServerThePermissionIsNamed) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openQtField(session);
    activate(session, field);
    session.stopSound();
    EXPECT_EQ(failingRun(false), QStringLiteral("permissions_failed(microphone)"));
    desktop.release();
    EXPECT_EQ(message(), words("error.micPermissionDenied"));
    session.startSound();
    expectTheNextArrives(field);
}

TEST_F(Failure, WhereNoKeysCanBeSentTheTextIsLeftOnTheClipboard) {
    auto& desktop = begin({.display = {QStringLiteral("-extension"), QStringLiteral("XTEST")}});
    auto& session = desktop.session;
    desktop.say(QStringLiteral("Paste me."));
    session.quillo({QStringLiteral("start")});
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    desktop.speak();
    session.quillo({QStringLiteral("stop")});
    const auto run = desktop.awaitRun({});
    EXPECT_EQ(run.value(QStringLiteral("delivery")).toString(), QStringLiteral("clipboardOnly"));
    EXPECT_EQ(session.run(QStringLiteral("xclip"),
                          {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")}),
              QStringLiteral("Paste me."));
    EXPECT_TRUE(session.waitForStatus(QStringLiteral("idle")));
}

TEST_F(Failure, ATapLeavesNothing) {
    auto& desktop = begin();
    const auto field = openQtField(desktop.session);
    activate(desktop.session, field);
    desktop.say(QStringLiteral("Never said."));
    desktop.press();
    desktop.release();
    EXPECT_TRUE(waitUntil([&] { return desktop.logged(QStringLiteral("🏁 Recording END")) == 1; }, 10s));
    EXPECT_TRUE(desktop.session.waitForStatus(QStringLiteral("idle")));
    EXPECT_EQ(message(), QString());
    expectTheNextArrives(field);
}

TEST_F(Failure, CancelEndsEveryStageAtOnce) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openQtField(session);
    activate(session, field);
    const QString cancelled = QStringLiteral("cancelled(user_cancel)");
    desktop.say(QStringLiteral("Back again."));

    // Before anything runs.
    session.quillo({QStringLiteral("cancel")});
    EXPECT_EQ(word(), QStringLiteral("idle"));

    desktop.set("cancelRecordingOnEscape", QStringLiteral("true"));
    // While it records, by the key and by the command.
    for (const bool byKey : {false, true}) {
        const auto before = desktop.lastRunId();
        desktop.press();
        ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
        if (byKey) {
            session.pressKey(9);
            session.releaseKey(9);
        } else {
            session.quillo({QStringLiteral("cancel")});
        }
        EXPECT_EQ(reasonOf(desktop.awaitRun(before)), cancelled);
        desktop.release();
        EXPECT_TRUE(session.waitForStatus(QStringLiteral("idle")));
    }

    // While the server works on the last words.
    desktop.holdAnswers(true);
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    desktop.speak();
    desktop.release();
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("processing")));
    session.quillo({QStringLiteral("cancel")});
    EXPECT_EQ(reasonOf(desktop.awaitRun(before)), cancelled);
    EXPECT_TRUE(session.waitForStatus(QStringLiteral("idle")));
    desktop.holdAnswers(false);
    EXPECT_EQ(field.content(), QByteArray()) << "a cancelled text was inserted";
    expectTheNextArrives(field);
}

TEST_F(Failure, CancelEndsAConnectionThatIsBeingMade) {
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    auto& desktop = begin({.serverHost = QStringLiteral("127.0.0.1:%1").arg(silent.serverPort())});
    for (int i = 0; i < 2; ++i) {
        const auto before = desktop.lastRunId();
        desktop.press();
        ASSERT_TRUE(waitUntil([&] { return word() == u"connecting" || word() == u"recording"; }, 5s))
            << word().toStdString();
        desktop.session.quillo({QStringLiteral("cancel")});
        EXPECT_EQ(reasonOf(desktop.awaitRun(before)), QStringLiteral("cancelled(user_cancel)"));
        desktop.release();
        EXPECT_TRUE(desktop.session.waitForStatus(QStringLiteral("idle")));
    }
}

} // namespace
