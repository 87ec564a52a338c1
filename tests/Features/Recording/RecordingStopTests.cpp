#include "RecordingFixture.h"

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

class RecordingStopTests : public RecordingFixture {
protected:
    /// Stopped before the session has started, with two chunks heard.
    void stopWhileConnecting() {
        start();
        speak(2);
        clock.advance(500ms);
        stop();
        EXPECT_TRUE(is<Status::Processing>()) << description();
        EXPECT_FALSE(audio.isCapturing());
    }
};

TEST_F(RecordingStopTests, aSessionThatArrivesAfterTheStopIsFinishedNormally) {
    stopWhileConnecting();
    clock.advance(11s);
    startSession();
    clock.advance(200ms);
    EXPECT_EQ(webSocket.audio.size(), 2U);
    EXPECT_EQ(webSocket.endedSessions, 1);
    endSession(u"late"_qs);
    ASSERT_EQ(injection.calls.size(), 1U);
    expectQuiet();
    expectDictationWorks();
}

TEST_F(RecordingStopTests, aSessionThatNeverArrivesIsGivenUpAfterTwelveSeconds) {
    stopWhileConnecting();
    clock.advance(11900ms);
    EXPECT_TRUE(is<Status::Processing>()) << description();
    clock.advance(300ms);
    EXPECT_TRUE(is<Status::Idle>()) << description();
    expectQuiet();
    expectDictationWorks();
}

TEST_F(RecordingStopTests, aStopWithoutSpeechEndsInSilence) {
    for (const int chunks : {0, 1}) {
        SCOPED_TRACE(chunks);
        start();
        speak(chunks);
        clock.advance(100ms);
        stop();
        EXPECT_TRUE(is<Status::Idle>()) << description();
        expectQuiet();
    }
    EXPECT_TRUE(injection.calls.empty());
    expectDictationWorks();
}

TEST_F(RecordingStopTests, aSecondStartOrStopChangesNothing) {
    record();
    start();
    EXPECT_EQ(audio.starts(), 1);
    stop();
    stop();
    EXPECT_EQ(webSocket.endedSessions, 1);
    endSession(u"once"_qs);
    EXPECT_EQ(injection.calls.size(), 1U);
    expectQuiet();
}

TEST_F(RecordingStopTests, whenTheUserLeavesTheTextGoesToTheHistoryOnly) {
    for (const bool isStopped : {false, true}) {
        SCOPED_TRACE(isStopped ? "after the stop" : "while speaking");
        const auto before = records().size();
        record();
        if (isStopped)
            stop();
        store->send(action::InterruptRecording{});
        settle();
        EXPECT_FALSE(audio.isCapturing());
        endSession(u"private"_qs);
        EXPECT_TRUE(injection.calls.empty());
        ASSERT_EQ(records().size(), before + 1);
        EXPECT_EQ(records().back()->text, u"private"_qs);
        EXPECT_EQ(store->state().savedToHistoryHintMessage, UserMessage{u"pill.userLeft"_qs});
        expectQuiet();
    }
    // The next dictation is inserted as always.
    record();
    stop();
    endSession(u"public"_qs);
    EXPECT_EQ(injection.calls.size(), 1U);
}

TEST_F(RecordingStopTests, theLastWordIsAwaitedWhileTheServerIsAtWorkButNotForEver) {
    struct Case {
        const char* name;
        ServerMessage every; ///< said every seven seconds
        std::chrono::seconds end;
    };
    const std::vector<Case> cases{
        {"says nothing of use", server::Error{u"ODD"_qs, QString()}, 8s},
        {"unknown", server::Unknown{u"noise"_qs}, 8s},
        {"at work", server::Pong{}, 60s},
        {"partials", server::PartialTranscript{}, 60s},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        injection.calls.clear();
        record();
        webSocket.currentTexts.accumulatedText = u"so far"_qs;
        stop();
        for (auto passed = 0s; passed < test.end - 1s; ++passed) {
            clock.advance(1s);
            if ((passed + 1s).count() % 7 == 0)
                serverSays(test.every);
        }
        EXPECT_TRUE(injection.calls.empty());
        clock.advance(1100ms);
        expectInserted(u"so far"_qs);
        EXPECT_EQ(store->state().savedToHistoryHintMessage, UserMessage{u"pill.incomplete"_qs});
        expectQuiet();
    }
}

TEST_F(RecordingStopTests, whatWasRecognisedIsDeliveredWhenTheLastWordWillNotCome) {
    for (const char* failure : {"TRANSCRIPTION_ERROR", "INTERNAL_ERROR", "NO_SESSION", "connection lost"}) {
        SCOPED_TRACE(failure);
        injection.calls.clear();
        record();
        webSocket.currentTexts.accumulatedText = u"so far"_qs;
        stop();
        if (failure == std::string_view("connection lost"))
            loseConnection();
        else
            serverFails(failure);
        expectInserted(u"so far"_qs);
        expectQuiet();
    }
}

TEST_F(RecordingStopTests, aConnectionLostWhileRecordingLeavesTheAudioForTheQueue) {
    record();
    webSocket.currentTexts.accumulatedText = u"recovered"_qs;
    loseConnection();
    EXPECT_TRUE(is<Status::RecordingOffline>()) << description();
    EXPECT_TRUE(audio.isCapturing());
    stop();
    // Half of a sentence is not what anybody wants typed; all of it comes from the queue.
    EXPECT_TRUE(injection.calls.empty());
    EXPECT_TRUE(is<Status::Idle>()) << description();
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->text, u"recovered"_qs);
    EXPECT_EQ(records().front()->status, RecordStatus::pendingTranscription);
    expectQuiet();
    expectDictationWorks();
}

TEST_F(RecordingStopTests, aLostMicrophoneIsReplacedOrEndsTheDictationWithItsText) {
    enum class Replacement { speaks, isSilent, none };
    for (const auto replacement : {Replacement::speaks, Replacement::isSilent, Replacement::none}) {
        SCOPED_TRACE(static_cast<int>(replacement));
        injection.calls.clear();
        record();
        loseMicrophone(replacement != Replacement::none);
        EXPECT_EQ(audio.isCapturing(), replacement != Replacement::none);
        if (replacement == Replacement::speaks) {
            speak(1);
            clock.advance(1s);
            EXPECT_TRUE(audio.isCapturing());
            stop();
        } else if (replacement == Replacement::isSilent) {
            clock.advance(600ms);
            clock.advance(600ms);
            EXPECT_FALSE(audio.isCapturing()) << "a dead microphone is listened to";
        }
        endSession(u"heard"_qs);
        EXPECT_EQ(injection.calls.size(), 1U);
        EXPECT_EQ(failedWith<RecordingError::AudioCaptureFailed>(), replacement != Replacement::speaks)
            << description();
        expectQuiet();
    }
}

TEST_F(RecordingStopTests, aHoldIsCountedFromItsPressHoweverLateThatIsHeardOf) {
    for (const auto late : {0ms, 300ms}) {
        injection.calls.clear();
        send(action::StartRecording{clock.now() - late});
        speak(2);
        startSession();
        clock.advance(200ms);
        stop();
        endSession(u"short"_qs);
        EXPECT_EQ(injection.calls.size(), late == 0ms ? 0U : 1U) << "a tap of 200 ms, and a hold of 500 ms";
        expectQuiet();
    }
}

TEST_F(RecordingStopTests, aMutedMicrophoneIsNamedWhenNothingIsRecognised) {
    for (const auto& [sample, hint] : {std::pair('\0', "pill.microphoneMuted"), std::pair('\1', "pill.nothingHeard")}) {
        start();
        startSession();
        audio.speak(0, QByteArray(AudioFormat::chunkByteSize, sample));
        clock.advance(500ms);
        stop();
        endSession({});
        EXPECT_EQ(store->state().savedToHistoryHintMessage.value_or(UserMessage{}).key, QString::fromLatin1(hint));
    }
}

TEST_F(RecordingStopTests, aMicrophoneLostAtOnceIsNoTap) {
    for (const int chunks : {0, 1}) {
        SCOPED_TRACE(chunks);
        start();
        startSession();
        speak(chunks);
        loseMicrophone();
        clock.advance(9s);
        EXPECT_TRUE(failedWith<RecordingError::AudioCaptureFailed>()) << description();
        EXPECT_EQ(records().size(), chunks);
        expectQuiet();
    }
}

TEST_F(RecordingStopTests, aCancelAtAnyStageInsertsNothingAndFreesTheMicrophone) {
    const std::vector<std::pair<const char*, std::function<void()>>> stages{
        {"connecting", [&] { start(), speak(); }},
        {"recording", [&] { record(); }},
        {"processing", [&] { record(), stop(); }},
    };
    for (const auto& [name, reach] : stages) {
        SCOPED_TRACE(name);
        injection.calls.clear();
        reach();
        cancel();
        EXPECT_TRUE(failedWith<RecordingError::Cancelled>()) << description();
        endSession(u"must not appear"_qs);
        clock.advance(20s);
        EXPECT_TRUE(injection.calls.empty());
        expectQuiet();
        expectDictationWorks();
    }
}

TEST_F(RecordingStopTests, aStartRightAfterACancelKeepsItsOwnMicrophone) {
    AsyncEvent opened;
    audio.beforeStart = [&]() -> Task<> { co_await opened.wait(clock, 1h); };
    start();
    cancel();
    audio.beforeStart = nullptr;
    start();
    EXPECT_TRUE(audio.isCapturing());
    // The device that the cancelled dictation asked for fails late: none of the next one's business.
    audio.nextStartError = AudioServiceError(AudioServiceError::Code::engineStartFailed);
    opened.set();
    settle();
    EXPECT_TRUE(audio.isCapturing());
    cancel();
    expectQuiet();
}

} // namespace

} // namespace quillo::test
