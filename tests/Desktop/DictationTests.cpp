// One dictation after another through the real programs in a real session: only the speaker is synthetic.

#include "DesktopSession.h"
#include "Server/Transcription/Support/Speech.h"
#include "Server/Transcription/Support/StandInService.h"
#include "Support/Async.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString english = QStringLiteral("en");

class DictationTest : public testing::Test {
protected:
    void TearDown() override {
        if (m_quillo)
            session.end(*m_quillo);
        if (HasFailure()) {
            session.keepFolder();
            std::cerr << "logs: " << session.folder().toStdString() << "\n";
        }
    }

    void start(const QString& serverOptions = {}) {
        session.environment().insert(QStringLiteral("QUILLO_SERVER_OPTIONS"), serverOptions);
        m_quillo = &session.startQuillo(
            {{QStringLiteral("primaryLanguage"), english}, {QStringLiteral("smartSpacing"), QStringLiteral("false")}});
        session.openTextField();
    }

    /// A server option that makes the recogniser answer `script`, a JSON object.
    QString scripted(const QByteArray& script) {
        QFile file(session.path(QStringLiteral("script.json")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(script);
        return QStringLiteral("--recogniser scripted --script %1").arg(file.fileName());
    }

    /// Holds the key while `speech` plays and returns what the field received by it.
    QString hold(const QString& speech) {
        const auto before = session.fieldReport().text;
        // Sooner than this it would be a double tap.
        waitUntil([&] { return monotonicNow() - m_released > 400ms; });
        session.pressKey(DesktopSession::rightSuper);
        EXPECT_TRUE(session.waitForStatus(QStringLiteral("recording")));
        session.play(speech);
        m_released = session.releaseKey(DesktopSession::rightSuper);
        EXPECT_TRUE(waitUntil([&] { return session.fieldReport().text != before; }, 30s)) << "no text arrived";
        EXPECT_TRUE(session.waitForStatus(QStringLiteral("idle")));
        return session.fieldReport().text.mid(before.size());
    }

    QJsonObject lastRun() { return session.status().value(QStringLiteral("lastRun")).toObject(); }

    QString clipboard() {
        return session.run(QStringLiteral("xclip"),
                           {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    }

    int occurrences(const QString& words) {
        QFile log(session.logFile());
        EXPECT_TRUE(log.open(QIODevice::ReadOnly));
        return static_cast<int>(QString::fromUtf8(log.readAll()).count(words));
    }

    DesktopSession session;
    QProcess* m_quillo = nullptr;
    std::chrono::nanoseconds m_released{};
};

TEST_F(DictationTest, SpeechArrivesAsTextAndTheClipboardStaysAsItWas) {
    start();
    session.run(QStringLiteral("sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("printf 'mine, not yours' | xclip -selection clipboard -i >/dev/null 2>&1")});
    const std::vector<std::pair<QString, std::string>> sentences{
        {QStringLiteral("I think we should talk to the customer before we make a decision."),
         "i think we should talk to the customer before we make a decision"},
        {QStringLiteral("Everyone on the team did an excellent job this year."),
         "everyone on the team did an excellent job this year"},
    };
    size_t errors = 0;
    size_t words = 0;
    for (const auto& [sentence, reference] : sentences) {
        const auto received = hold(session.synthesize(sentence));
        EXPECT_EQ(received.trimmed(), lastRun().value(QStringLiteral("text")).toString().trimmed())
            << "the field holds something else than what was recognised";
        errors += quillo::server::test::wordErrors(reference, received.toStdString());
        words += quillo::server::test::wordCount(reference);
        EXPECT_EQ(lastRun().value(QStringLiteral("delivery")).toString(), QStringLiteral("read"));
    }
    EXPECT_LE(errors * 4, words) << errors << " of " << words << " words are wrong";
    EXPECT_TRUE(waitUntil([&] { return clipboard() == QStringLiteral("mine, not yours"); }, 5s))
        << clipboard().toStdString();
    EXPECT_EQ(occurrences(QStringLiteral("🎬 Recording START")), 2);
    EXPECT_EQ(occurrences(QStringLiteral("🏁 Recording END")), 2);
    EXPECT_EQ(occurrences(QStringLiteral("reason=completed ")), 2);
}

TEST_F(DictationTest, EveryScriptArrivesByteForByte) {
    const QString text =
        QStringLiteral("Grüße aus Zürich – “naïve” 日本語 привет 😀👩‍👩‍👧 €5.");
    start(
        scripted(R"({"events": [{"at": 0.3, "partial": "Grüße"}, {"at": 0.5, "final": ")" + text.toUtf8() + R"("}]})"));
    EXPECT_EQ(hold(session.synthesize(QStringLiteral("anything at all"))), text);
}

TEST_F(DictationTest, AServiceOverHTTPRecognisesAsWell) {
    std::string authorization;
    quillo::server::test::StandInService service([&](const auto& request) {
        const auto at = request.head.find("Authorization: ");
        authorization = at == std::string::npos ? "" : request.head.substr(at, request.head.find('\r', at) - at);
        return quillo::server::test::StandInService::Reply{.body = R"({"text": "Heard by a service over HTTP."})"};
    });
    session.environment().insert(QStringLiteral("QUILLO_RECOGNISER_KEY"), QStringLiteral("key-of-the-service"));
    start(QStringLiteral("--recogniser http --recogniser-url %1").arg(QString::fromStdString(service.url())));
    EXPECT_EQ(hold(session.synthesize(QStringLiteral("I am running a few minutes late."))).trimmed(),
              QStringLiteral("Heard by a service over HTTP."));
    EXPECT_EQ(authorization, "Authorization: Bearer key-of-the-service");
    EXPECT_EQ(occurrences(QStringLiteral("key-of-the-service")), 0) << "the key is in the log";
}

TEST_F(DictationTest, TheCommandLineDictatesToo) {
    int code = 0;
    session.quillo({QStringLiteral("start")}, &code);
    EXPECT_EQ(code, 3) << "nothing runs yet";
    start(scripted(R"({"events": [{"at": 0.2, "final": "From the command line."}]})"));
    const auto command = [&](const char* name) {
        session.quillo({QString::fromLatin1(name)}, &code);
        EXPECT_EQ(code, 0) << name;
    };
    command("stop");
    command("cancel");
    EXPECT_EQ(session.status().value(QStringLiteral("status")).toString(), QStringLiteral("idle"));

    command("start");
    command("start");
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    session.play(session.synthesize(QStringLiteral("a word or two")));
    command("stop");
    ASSERT_TRUE(waitUntil([&] { return !session.fieldReport().text.isEmpty(); }, 20s));
    EXPECT_EQ(session.fieldReport().text, QStringLiteral("From the command line."));
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("idle")));

    command("toggle");
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    session.play(session.synthesize(QStringLiteral("a word or two")));
    command("cancel");
    EXPECT_EQ(lastRun().value(QStringLiteral("reason")).toString(), QStringLiteral("cancelled(user_cancel)"));
    EXPECT_EQ(session.fieldReport().text, QStringLiteral("From the command line.")) << "a cancelled text was inserted";

    // A second instance brings the first one forward and leaves.
    session.quillo({}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(session.quillo({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("primaryLanguage")})
                  .trimmed(),
              english);
    session.quillo({QStringLiteral("settings"), QStringLiteral("set"), QStringLiteral("doubleTapInterval"),
                    QStringLiteral("soon")},
                   &code);
    EXPECT_EQ(code, 1);
    command("quit");
    EXPECT_TRUE(waitUntil([&] { return m_quillo->state() == QProcess::NotRunning; }, 10s));
    EXPECT_EQ(m_quillo->exitCode(), 0);
}

TEST_F(DictationTest, AServerThatDiesIsStartedAgainAtTheSameAddress) {
    start(scripted(R"({"events": [{"at": 0.2, "final": "Once more."}]})"));
    const auto speech = session.synthesize(QStringLiteral("a word or two"));
    EXPECT_EQ(hold(speech), QStringLiteral("Once more."));
    session.run(QStringLiteral("pkill"), {QStringLiteral("-KILL"), QStringLiteral("-P"),
                                          QString::number(m_quillo->processId()), QStringLiteral("quillo-server")});
    // Pressed at once: the connection waits in the socket's queue until the new server answers.
    EXPECT_EQ(hold(speech), QStringLiteral("Once more."));
}

} // namespace
