// One dictation after another through the real programs in a real session: only the speaker is synthetic.

#include "DesktopSession.h"
#include "Server/Transcription/Support/Speech.h"
#include "Server/Transcription/Support/StandInService.h"
#include "Support/Async.h"
#include "Support/Files.h"

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString english = u"en"_qs;

class DictationTest : public testing::Test {
protected:
    void start() {
        m_quillo = &session.startQuillo({{u"primaryLanguage"_qs, english}, {u"smartSpacing"_qs, u"false"_qs}});
        session.openTextField();
    }

    /// Holds the key while `speech` plays and returns what the field received by it.
    QString hold(const QString& speech) {
        const auto before = session.fieldReport().text;
        // Sooner than this it would be a double tap.
        waitUntil([&] { return monotonicNow() - m_released > 400ms; });
        session.pressKey(DesktopSession::rightSuper);
        EXPECT_TRUE(session.waitForStatus(u"recording"_qs));
        session.play(speech);
        m_released = session.releaseKey(DesktopSession::rightSuper);
        EXPECT_TRUE(waitUntil([&] { return session.fieldReport().text != before; }, 30s)) << "no text arrived";
        EXPECT_TRUE(session.waitForStatus(u"idle"_qs));
        return session.fieldReport().text.mid(before.size());
    }

    QString clipboard() { return session.shell(u"xclip -selection clipboard -o"_qs); }

    DesktopSession session;
    QProcess* m_quillo = nullptr;
    std::chrono::nanoseconds m_released{};
};

TEST_F(DictationTest, SpeechArrivesAsTextAndTheClipboardStaysAsItWas) {
    start();
    session.shell(u"printf 'mine, not yours' | xclip -selection clipboard -i >/dev/null 2>&1"_qs);
    const std::vector<std::pair<QString, std::string>> sentences{
        {u"I think we should talk to the customer before we make a decision."_qs,
         "i think we should talk to the customer before we make a decision"},
        {u"Everyone on the team did an excellent job this year."_qs,
         "everyone on the team did an excellent job this year"},
    };
    size_t errors = 0;
    size_t words = 0;
    for (const auto& [sentence, reference] : sentences) {
        const auto received = hold(session.synthesize(sentence));
        EXPECT_EQ(received.trimmed(), session.lastRun().value(u"text"_qs).toString().trimmed())
            << "the field holds something else than what was recognised";
        errors += quillo::server::test::wordErrors(reference, received.toStdString());
        words += quillo::server::test::wordCount(reference);
        EXPECT_EQ(session.lastRun().value(u"delivery"_qs).toString(), u"read"_qs);
        EXPECT_FALSE(contentOf(session.path(u"quillo.log"_qs)).contains(received.trimmed().toUtf8()))
            << "the console has the text";
    }
    EXPECT_LE(errors * 4, words) << errors << " of " << words << " words are wrong";
    EXPECT_TRUE(waitUntil([&] { return clipboard() == u"mine, not yours"_qs; }, 5s)) << clipboard().toStdString();
    EXPECT_EQ(session.logged(u"🎬 Recording START"_qs), 2);
    EXPECT_EQ(session.logged(u"🏁 Recording END"_qs), 2);
    EXPECT_EQ(session.logged(u"reason=completed "_qs), 2);
}

TEST_F(DictationTest, AServiceOverHTTPRecognisesAsWell) {
    std::string authorization;
    quillo::server::test::StandInService service([&](const auto& request) {
        const auto at = request.head.find("Authorization: ");
        authorization = at == std::string::npos ? "" : request.head.substr(at, request.head.find('\r', at) - at);
        return quillo::server::test::StandInService::Reply{.body = R"({"text": "Heard by a service over HTTP."})"};
    });
    session.environment().insert(u"QUILLO_RECOGNISER_KEY"_qs, u"key-of-the-service"_qs);
    session.environment().insert(u"QUILLO_SERVER_OPTIONS"_qs,
                                 u"--recogniser http --recogniser-url "_qs + QString::fromStdString(service.url()));
    start();
    EXPECT_EQ(hold(session.synthesize(u"I am running a few minutes late."_qs)).trimmed(),
              u"Heard by a service over HTTP."_qs);
    EXPECT_EQ(authorization, "Authorization: Bearer key-of-the-service");
    EXPECT_EQ(session.logged(u"key-of-the-service"_qs), 0) << "the key is in the log";
}

TEST_F(DictationTest, TheCommandLineDictatesToo) {
    int code = 0;
    session.quillo({u"start"_qs}, &code);
    EXPECT_EQ(code, 3) << "nothing runs yet";
    session.recognise(u"From the command line."_qs);
    start();
    const auto command = [&](const char* name) {
        session.quillo({QString::fromLatin1(name)}, &code);
        EXPECT_EQ(code, 0) << name;
    };
    command("stop");
    command("cancel");
    EXPECT_EQ(session.status("status"), u"idle"_qs);

    command("start");
    command("start");
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    session.play(session.synthesize(u"a word or two"_qs));
    command("stop");
    ASSERT_TRUE(waitUntil([&] { return !session.fieldReport().text.isEmpty(); }, 20s));
    EXPECT_EQ(session.fieldReport().text, u"From the command line."_qs);
    ASSERT_TRUE(session.waitForStatus(u"idle"_qs));

    command("toggle");
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    session.play(session.synthesize(u"a word or two"_qs));
    command("cancel");
    EXPECT_EQ(session.lastRun().value(u"reason"_qs).toString(), u"cancelled(user_cancel)"_qs);
    EXPECT_EQ(session.fieldReport().text, u"From the command line."_qs) << "a cancelled text was inserted";

    EXPECT_EQ(session.quillo({u"settings"_qs, u"get"_qs, u"primaryLanguage"_qs}).trimmed(), english);
    session.quillo({u"settings"_qs, u"set"_qs, u"doubleTapInterval"_qs, u"soon"_qs}, &code);
    EXPECT_EQ(code, 1);
    command("quit");
    EXPECT_TRUE(waitUntil([&] { return m_quillo->state() == QProcess::NotRunning; }, 10s));
    EXPECT_EQ(m_quillo->exitCode(), 0);
}

TEST_F(DictationTest, AServerThatDiesIsStartedAgainAtTheSameAddress) {
    session.recognise(u"Once more."_qs);
    start();
    const auto speech = session.synthesize(u"a word or two"_qs);
    EXPECT_EQ(hold(speech), u"Once more."_qs);
    session.run(u"pkill"_qs, {u"-KILL"_qs, u"-P"_qs, QString::number(m_quillo->processId()), u"quillo-server"_qs});
    // Pressed at once: the connection waits in the socket's queue until the new server answers.
    EXPECT_EQ(hold(speech), u"Once more."_qs);
}

} // namespace
