// What goes wrong on a plain day, provoked for real: the state and the words it ends in, and that the next dictation
// can begin at once.

#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Targets/TargetWindow.h"

#include <QJsonDocument>
#include <QTcpServer>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

/// What the program shows for a key of its catalogues.
QString words(const char* key) {
    const auto catalogue = QJsonDocument::fromJson(contentOf(QStringLiteral(QUILLO_ENGLISH_CATALOGUE)));
    const auto text = catalogue.object().value(QString::fromLatin1(key)).toString();
    EXPECT_FALSE(text.isEmpty()) << key;
    return text;
}

class Failure : public testing::Test {
protected:
    ScriptedDesktop& begin(ScriptedDesktop::Options options = {}) {
        m_desktop.emplace(std::move(options));
        return *m_desktop;
    }

    TargetWindow openField() {
        auto field = openQtField(m_desktop->session);
        activate(m_desktop->session, field);
        return field;
    }
    QString word() { return m_desktop->session.status("status"); }
    QString message() { return m_desktop->session.status("message"); }
    QString detail() { return m_desktop->session.status("detail"); }
    QString reasonOf(const QJsonObject& run) { return run.value(u"reason"_qs).toString(); }

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
        const auto run = m_desktop->dictate(u"Back again."_qs);
        EXPECT_EQ(reasonOf(run), u"completed"_qs);
        EXPECT_TRUE(waitUntil([&] { return field.content() == before + "Back again."; }, 5s))
            << field.content().toStdString();
    }

    std::optional<ScriptedDesktop> m_desktop;
};

TEST_F(Failure, WithoutANetworkNothingIsRecorded) {
    // A separate network namespace has no route; the address never answers.
    begin({.serverHost = u"192.0.2.1:443"_qs, .wrapper = {u"unshare"_qs, u"-n"_qs}});
    EXPECT_EQ(failingRun(), u"failed(no_network)"_qs);
    EXPECT_EQ(message(), words("error.connectionFailed"));
    EXPECT_EQ(detail(), u"No internet connection"_qs);
    EXPECT_EQ(m_desktop->logged(u"🎤 Starting audio capture"_qs), 0) << "the microphone was opened";
    // Again: the application must recover from a failure.
    EXPECT_EQ(failingRun(), u"failed(no_network)"_qs);
}

TEST_F(Failure, ADeadServerAndASilentOneCostNoAudio) {
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    const auto silentHost = u"127.0.0.1:%1"_qs.arg(silent.serverPort());
    begin({.serverHost = silentHost});
    EXPECT_EQ(failingRun(), u"completed(stop_before_session_started)"_qs);
    EXPECT_TRUE(m_desktop->session.waitForStatus(u"idle"_qs));
    EXPECT_EQ(m_desktop->logged(u"🎧 Audio retained for PENDING recovery: "_qs), 1) << "the audio is lost";
    const auto recordings = m_desktop->logged(u"🎬 Recording START"_qs);
    silent.close();
    EXPECT_EQ(failingRun(), u"completed(offline_stop)"_qs);
    EXPECT_TRUE(m_desktop->session.waitForStatus(u"idle"_qs));
    EXPECT_EQ(m_desktop->logged(u"🎧 Audio retained for PENDING recovery: "_qs), 2) << "the audio is lost";
    EXPECT_EQ(m_desktop->logged(u"🎬 Recording START"_qs), recordings + 1);
    EXPECT_EQ(m_desktop->logged(u"🏁 Recording END"_qs), recordings + 1);
}

TEST_F(Failure, AMicrophoneThatGoesIsNamedAndItsReturnIsEnough) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openField();
    const auto run =
        desktop.dictate(u"Half a sentence."_qs, [&] { session.shell(u"pactl unload-module module-remap-source"_qs); });
    EXPECT_EQ(reasonOf(run), u"failed(microphone_lost)"_qs);
    EXPECT_EQ(message(), words("error.audioCaptureFailed"));
    EXPECT_TRUE(waitUntil([&] { return field.content() == "Half a sentence."; }, 5s))
        << "what was said before is lost: " << field.content().toStdString();

    session.shell(u"pactl load-module module-remap-source master=mouth.monitor source_name=microphone && "
                  u"pactl set-default-source microphone"_qs);
    expectTheNextArrives(field);
}

TEST_F(Failure, WithoutASoundServerThePermissionIsNamed) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openField();
    session.stopSound();
    EXPECT_EQ(failingRun(false), u"permissions_failed(microphone)"_qs);
    desktop.release();
    EXPECT_EQ(message(), words("error.micPermissionDenied"));
    session.startSound();
    expectTheNextArrives(field);
}

TEST_F(Failure, WhereNoKeysCanBeSentTheTextIsLeftOnTheClipboard) {
    auto& desktop = begin({.display = {u"-extension"_qs, u"XTEST"_qs}});
    auto& session = desktop.session;
    desktop.say(u"Paste me."_qs);
    session.quillo({u"start"_qs});
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    desktop.speak();
    session.quillo({u"stop"_qs});
    const auto run = desktop.awaitRun({});
    EXPECT_EQ(run.value(u"delivery"_qs).toString(), u"clipboardOnly"_qs);
    EXPECT_EQ(session.shell(u"xclip -selection clipboard -o"_qs), u"Paste me."_qs);
    EXPECT_TRUE(session.waitForStatus(u"idle"_qs));
}

TEST_F(Failure, ATapLeavesNothing) {
    auto& desktop = begin();
    const auto field = openField();
    desktop.say(u"Never said."_qs);
    desktop.press();
    desktop.release();
    EXPECT_TRUE(waitUntil([&] { return desktop.logged(u"🏁 Recording END"_qs) == 1; }, 10s));
    EXPECT_TRUE(desktop.session.waitForStatus(u"idle"_qs));
    EXPECT_EQ(message(), QString());
    expectTheNextArrives(field);
}

TEST_F(Failure, CancelEndsEveryStageAtOnce) {
    auto& desktop = begin();
    auto& session = desktop.session;
    const auto field = openField();
    const QString cancelled = u"cancelled(user_cancel)"_qs;
    desktop.say(u"Back again."_qs);

    // Before anything runs.
    session.quillo({u"cancel"_qs});
    EXPECT_EQ(word(), u"idle"_qs);

    desktop.set("cancelRecordingOnEscape", u"true"_qs);
    // While it records, by the key and by the command.
    for (const bool byKey : {false, true}) {
        const auto before = desktop.lastRunId();
        desktop.press();
        ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
        if (byKey) {
            session.pressKey(9);
            session.releaseKey(9);
        } else {
            session.quillo({u"cancel"_qs});
        }
        EXPECT_EQ(reasonOf(desktop.awaitRun(before)), cancelled);
        desktop.release();
        EXPECT_TRUE(session.waitForStatus(u"idle"_qs));
    }

    // While the server works on the last words.
    desktop.holdAnswers(true);
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    desktop.speak();
    desktop.release();
    ASSERT_TRUE(session.waitForStatus(u"processing"_qs));
    session.quillo({u"cancel"_qs});
    EXPECT_EQ(reasonOf(desktop.awaitRun(before)), cancelled);
    EXPECT_TRUE(session.waitForStatus(u"idle"_qs));
    desktop.holdAnswers(false);
    EXPECT_EQ(field.content(), QByteArray()) << "a cancelled text was inserted";
    expectTheNextArrives(field);
}

TEST_F(Failure, CancelEndsAConnectionThatIsBeingMade) {
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    auto& desktop = begin({.serverHost = u"127.0.0.1:%1"_qs.arg(silent.serverPort())});
    for (int i = 0; i < 2; ++i) {
        const auto before = desktop.lastRunId();
        desktop.press();
        ASSERT_TRUE(waitUntil([&] { return word() == u"connecting" || word() == u"recording"; }, 5s))
            << word().toStdString();
        desktop.session.quillo({u"cancel"_qs});
        EXPECT_EQ(reasonOf(desktop.awaitRun(before)), u"cancelled(user_cancel)"_qs);
        desktop.release();
        EXPECT_TRUE(desktop.session.waitForStatus(u"idle"_qs));
    }
}

} // namespace
