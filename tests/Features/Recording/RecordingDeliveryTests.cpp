#include "RecordingFixture.h"

#include <QCoreApplication>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

class RecordingDeliveryTests : public RecordingFixture {
protected:
    void dictate(const QString& text) {
        record();
        stop();
        endSession(text);
    }
    [[nodiscard]] QString reason() const { return effects->lastReport()->reason; }
};

RunningApplication application(qint64 pid, const char* name) {
    return {.pid = pid, .name = QString::fromLatin1(name), .bundleIdentifier = QString::fromLatin1(name)};
}

TEST_F(RecordingDeliveryTests, EveryOutcomeIsToldAndLeavesTheNextDictationFree) {
    struct Row {
        const char* name;
        std::function<void()> prepare;
        QString text;
        const char* reason;
        bool hint;
        bool error;
    };
    const std::vector<Row> table{
        {"read", [] {}, QStringLiteral("a"), "completed", false, false},
        {"typed", [this] { injection.delivery = Delivery::typed; }, QStringLiteral("a"), "completed", false, false},
        {"unconfirmed", [this] { injection.delivery = Delivery::unconfirmed; }, QStringLiteral("a"), "completed", true,
         false},
        {"clipboard only", [this] { injection.delivery = Delivery::clipboardOnly; }, QStringLiteral("a"), "completed",
         true, false},
        {"refused", [this] { injection.failure = TextInjectionError::Code::secureInput; }, QStringLiteral("a"),
         "failed(text_injection)", false, true},
        {"nothing heard", [] {}, QString(), "completed(empty_result_zero_words)", true, false},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        injection.delivery = Delivery::read;
        injection.failure.reset();
        row.prepare();
        dictate(row.text);
        EXPECT_EQ(reason(), QString::fromLatin1(row.reason));
        EXPECT_EQ(store->state().savedToHistoryHintVisible, row.hint);
        EXPECT_EQ(store->state().status.error() != nullptr, row.error);
        EXPECT_EQ(effects->lastReport()->text, row.text) << "the text is out of reach";
        expectQuiet();
    }
    injection.failure.reset();
    expectDictationWorks();
}

TEST_F(RecordingDeliveryTests, TheTextGoesToTheApplicationInFrontUnlessThatIsOurselves) {
    const auto ourselves = application(QCoreApplication::applicationPid(), "Quillo");
    const auto editor = application(11, "Editor");
    const auto mail = application(12, "Mail");
    struct Row {
        const char* name;
        std::optional<RunningApplication> atStart;
        std::optional<RunningApplication> atStop;
        std::vector<RunningApplication> activated;
    };
    const std::vector<Row> table{
        {"unchanged", editor, editor, {}},
        {"switched during the recording", editor, mail, {}},
        {"ourselves in front", editor, ourselves, {editor, ourselves}},
        {"ourselves from the start", ourselves, ourselves, {}},
        {"none at the start", std::nullopt, mail, {}},
        {"an empty desktop", std::nullopt, std::nullopt, {}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        applications.front = row.atStart;
        applications.activated.clear();
        injection.calls.clear();
        record();
        applications.front = row.atStop;
        stop();
        endSession(QStringLiteral("text"));
        EXPECT_EQ(injection.calls.size(), 1U);
        EXPECT_EQ(applications.activated, row.activated);
    }
}

TEST_F(RecordingDeliveryTests, AFatalServerErrorStopsEverythingAndDeliversWhatThereIs) {
    struct Row {
        const char* code;
        const char* heard;
        const char* shown;
    };
    const std::vector<Row> table{
        {"STT_UNAVAILABLE", "",
         "STT provider is currently unavailable on the server. Please try again later or "
         "contact the administrator."},
        {"STT_UNAVAILABLE", "heard before",
         "STT provider is currently unavailable on the server. Please try again "
         "later or contact the administrator."},
        {"TRANSCRIPTION_ERROR", "", "broken"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.code);
        injection.calls.clear();
        record();
        webSocket.currentTexts.accumulatedText = QString::fromLatin1(row.heard);
        serverSays(server::Error{QString::fromLatin1(row.code), QStringLiteral("broken")});
        EXPECT_TRUE(failedWith<RecordingError::TranscriptionFailed>()) << description();
        EXPECT_EQ(store->state().status.error()->detail(), QString::fromLatin1(row.shown));
        EXPECT_EQ(injection.calls.size(), *row.heard ? 1U : 0U);
        expectQuiet();
    }
    webSocket.currentTexts = {};
    expectDictationWorks();
}

TEST_F(RecordingDeliveryTests, ALostSessionIsStartedAgainAndWhatWasSaidMeanwhileIsSent) {
    record();
    const auto sent = webSocket.audio.size();
    serverSays(server::Error{QStringLiteral("NO_SESSION"), QStringLiteral("gone")});
    EXPECT_EQ(webSocket.sessions.size(), 2U);
    speak(2);
    EXPECT_EQ(webSocket.audio.size(), sent) << "sent into a session that does not exist";
    startSession();
    EXPECT_EQ(webSocket.audio.size(), sent + 2);
    stop();
    endSession(QStringLiteral("text"));
    EXPECT_EQ(injection.calls.size(), 1U);
    expectQuiet();
}

TEST_F(RecordingDeliveryTests, ACommandsTextReplacesTheRawOne) {
    record();
    serverSays(server::CommandDetected{QStringLiteral("make it formal"), QStringLiteral("preset")});
    serverSays(server::CommandProcessing{});
    stop();
    // The server may take its time over this.
    clock.advance(20s);
    EXPECT_TRUE(is<Status::Processing>()) << description();
    server::SessionEnded ended;
    ended.text = QStringLiteral("Dear Sir or Madam");
    ended.commandApplied = true;
    serverSays(ended);
    ASSERT_EQ(injection.calls.size(), 1U);
    EXPECT_EQ(injection.calls.front().text, QStringLiteral("Dear Sir or Madam"));
}

} // namespace

} // namespace quillo::test
