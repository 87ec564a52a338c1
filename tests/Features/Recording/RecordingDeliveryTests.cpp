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
        {"read", [] {}, u"a"_qs, "completed", false, false},
        {"typed", [this] { injection.delivery = Delivery::typed; }, u"a"_qs, "completed", false, false},
        {"unconfirmed", [this] { injection.delivery = Delivery::unconfirmed; }, u"a"_qs, "completed", true, false},
        {"clipboard only", [this] { injection.delivery = Delivery::clipboardOnly; }, u"a"_qs, "completed", true, false},
        {"refused", [this] { injection.failure = TextInjectionError::Code::secureInput; }, u"a"_qs,
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
        endSession(u"text"_qs);
        EXPECT_EQ(injection.calls.size(), 1U);
        EXPECT_EQ(applications.activated, row.activated);
    }
}

TEST_F(RecordingDeliveryTests, AFatalServerErrorKeepsListeningAndNamesItselfAtTheEnd) {
    for (const bool isStopping : {false, true}) {
        SCOPED_TRACE(isStopping);
        injection.calls.clear();
        record();
        webSocket.currentTexts.accumulatedText = u"heard before"_qs;
        if (isStopping)
            stop();
        serverFails("STT_UNAVAILABLE");
        EXPECT_EQ(audio.isCapturing(), !isStopping);
        stop();
        ASSERT_TRUE(failedWith<RecordingError::TranscriptionFailed>()) << description();
        EXPECT_EQ(store->state().status.error()->detail(),
                  u"STT provider is currently unavailable on the server. Please try again later or "
                  "contact the administrator."_qs);
        // The text of what was said before the failure alone is not what anybody wants typed.
        EXPECT_EQ(injection.calls.size(), isStopping ? 1U : 0U);
        EXPECT_EQ(records().back()->text, u"heard before"_qs);
        EXPECT_EQ(records().back()->status, RecordStatus::pendingTranscription);
        expectQuiet();
    }
    webSocket.currentTexts = {};
    expectDictationWorks();
}

TEST_F(RecordingDeliveryTests, ASessionThatEndsWhileThePersonSpeaksIsReplacedAndItsTextJoined) {
    const auto gone = [&] {
        webSocket.currentTexts.accumulatedText = u"first half"_qs;
        for (int i = 0; i < 3; ++i)
            serverFails("NO_SESSION");
    };
    const std::vector<std::tuple<const char*, std::function<void()>, size_t>> ends{
        {"gone", gone, 2U},
        {"ended unasked", [&] { endSession(u"first half"_qs); }, 2U},
        // Its result arrives after the request for the next one, which the server has refused for that reason.
        {"gone, with a late result",
         [&] {
             gone();
             endSession(u"first half"_qs);
         },
         3U},
    };
    for (const auto& [name, end, requests] : ends) {
        SCOPED_TRACE(name);
        webSocket.sessions.clear();
        injection.calls.clear();
        record();
        const auto sent = webSocket.audio.size();
        end();
        EXPECT_TRUE(is<Status::Recording>()) << description();
        EXPECT_EQ(webSocket.sessions.size(), requests);
        speak(2);
        EXPECT_EQ(webSocket.audio.size(), sent) << "sent into a session that does not exist";
        startSession();
        EXPECT_EQ(webSocket.audio.size(), sent + 2);
        stop();
        EXPECT_TRUE(injection.calls.empty()) << "the second session's text was not awaited";
        endSession(u"second half"_qs);
        expectInserted(u"first half second half"_qs);
        EXPECT_EQ(records().back()->status, RecordStatus::pendingTranscription);
        expectQuiet();
    }
}

TEST_F(RecordingDeliveryTests, AServerThatEndsEverySessionIsNotAskedForEver) {
    record();
    for (int i = 0; i < 20; ++i)
        endSession({});
    EXPECT_TRUE(is<Status::RecordingOffline>()) << description();
    EXPECT_LT(webSocket.sessions.size(), 7U);
    stop();
    EXPECT_EQ(records().back()->status, RecordStatus::pendingTranscription);
    expectQuiet();
}

TEST_F(RecordingDeliveryTests, ACommandsResultIsUsedWhenTheLastWordNeverComes) {
    record();
    webSocket.currentTexts.accumulatedText = u"make it formal hi"_qs;
    stop();
    serverSays(server::CommandResult{u"Dear Sir"_qs, u"hi"_qs, std::nullopt});
    loseConnection();
    expectInserted(u"Dear Sir"_qs);
    EXPECT_EQ(records().back()->rawText, u"hi"_qs);
}

TEST_F(RecordingDeliveryTests, ACommandsTextReplacesTheRawOne) {
    record();
    serverSays(server::CommandDetected{u"make it formal"_qs, u"preset"_qs});
    serverSays(server::CommandProcessing{});
    stop();
    // The server may take its time over this.
    clock.advance(20s);
    EXPECT_TRUE(is<Status::Processing>()) << description();
    server::SessionEnded ended;
    ended.text = u"Dear Sir or Madam"_qs;
    ended.commandApplied = true;
    serverSays(ended);
    expectInserted(u"Dear Sir or Madam"_qs);
}

} // namespace

} // namespace quillo::test
