#include "RecordingFixture.h"

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

class RecordingStartTests : public RecordingFixture {};

TEST_F(RecordingStartTests, aDictationGoesFromTheKeyToTheText) {
    start();
    EXPECT_EQ(audio.calls.value(0), u"startCapture"_qs);
    speak(3);
    EXPECT_TRUE(webSocket.audio.empty());
    startSession();
    EXPECT_TRUE(is<Status::Recording>()) << description();
    speak(2);
    ASSERT_EQ(webSocket.audio.size(), 5U);
    for (size_t i = 0; i < webSocket.audio.size(); ++i)
        EXPECT_EQ(webSocket.audio[i].sequence, static_cast<int64_t>(i));
    clock.advance(500ms);
    stop();
    EXPECT_TRUE(is<Status::Processing>()) << description();
    EXPECT_FALSE(audio.isCapturing());
    EXPECT_EQ(webSocket.endedSessions, 1);
    endSession(u"hello"_qs);
    expectInserted(u"hello"_qs);
    EXPECT_TRUE(is<Status::Idle>()) << description();
    expectQuiet();
    ASSERT_TRUE(effects->lastReport());
    EXPECT_EQ(effects->lastReport()->reason, u"completed"_qs);
    EXPECT_EQ(effects->lastReport()->text, u"hello"_qs);
    EXPECT_EQ(actions.join(QLatin1Char(' ')),
              u"startRecording targetApplicationCaptured audioCaptureStarted connectionEstablished "
              "sessionStarted stopRecording sessionEnded textInjected showSavedToHistory "
              "recordingCompleted"_qs);
    expectDictationWorks();
}

TEST_F(RecordingStartTests, aFailedStartLeavesNothingOpenAndTheNextWorks) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::function<void()> mend;
        std::function<bool()> expected;
    };
    const std::vector<Case> cases{
        {"no network", [&] { network.setConnected(false); }, [&] { network.setConnected(true); },
         [&] { return failedWith<RecordingError::ConnectionFailed>() && audio.starts() == 0; }},
        {"language gate", [&] { preferences.languageChosen = false; }, [&] { preferences.languageChosen = true; },
         [&] {
             return is<Status::Idle>() && notifications.contains(notification::firstRecordingLanguageGateRequested);
         }},
        {"microphone denied", [&] { permissions.microphone = permissions.microphoneOnRequest = false; },
         [&] { permissions.microphone = true; },
         [&] { return failedWith<RecordingError::MicrophonePermissionDenied>(); }},
        {"accessibility missing", [&] { permissions.accessibility = permissions.accessibilityOnRequest = false; },
         [&] { permissions.accessibility = true; },
         [&] { return failedWith<RecordingError::AccessibilityPermissionDenied>(); }},
        {"capture fails", [&] { audio.nextStartError = AudioServiceError(AudioServiceError::Code::engineStartFailed); },
         [] {}, [&] { return failedWith<RecordingError::AudioCaptureFailed>(); }},
    };
    for (const auto& [name, arrange, mend, expected] : cases) {
        SCOPED_TRACE(name);
        arrange();
        start();
        EXPECT_TRUE(expected()) << description();
        expectQuiet();
        mend();
        expectDictationWorks();
    }
}

TEST_F(RecordingStartTests, withoutAServerEverythingSaidIsKeptWhileTheKeyIsHeld) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::function<void()> answer; ///< what the server says before the first chunk
        const char* reason;
        std::function<bool()> shown;
    };
    const auto noAnswer = [] {};
    const auto error = [this](const char* code) { return [this, code] { serverFails(code); }; };
    const auto refused = [this](int status) {
        return [this, status] {
            for (int i = 0; i < 2; ++i)
                webSocket.connectErrors.emplace_back(WebSocketError::Code::connectionFailed, u"no"_qs, status);
        };
    };
    const auto idle = [this] { return is<Status::Idle>() && store->state().savedToHistoryHintVisible; };
    const auto failed = [this] { return failedWith<RecordingError::TranscriptionFailed>(); };
    const std::vector<Case> cases{
        {"no server", refused(0), noAnswer, "completed(offline_stop)", idle},
        {"a full server", refused(503), noAnswer, "completed(offline_stop)", idle},
        {"rejected twice", refused(401), noAnswer, "failed(connection)",
         [this] { return failedWith<RecordingError::ConnectionFailed>(); }},
        {"no token to be had",
         [this] {
             tokens.setAccessToken({});
             auth.onAnonymousSession = [] {
                 throw AuthError(AuthError::Kind::transport, AuthError::Code::anonymousFailed, u"no"_qs);
             };
         },
         noAnswer, "completed(offline_stop)", idle},
        {"start_session not sent", [this] { webSocket.sendError = WebSocketError(WebSocketError::Code::notConnected); },
         noAnswer, "completed(offline_stop)", idle},
        {"closed at once", noAnswer, [this] { loseConnection(); }, "completed(offline_stop)", idle},
        {"recogniser out of order", noAnswer, error("STT_UNAVAILABLE"), "fatal_stt_error(STT_UNAVAILABLE)", failed},
        {"language", noAnswer, error("LANGUAGE_NOT_SERVED"), "fatal_stt_error(LANGUAGE_NOT_SERVED)", failed},
        {"transcription error", noAnswer, error("TRANSCRIPTION_ERROR"), "fatal_stt_error(TRANSCRIPTION_ERROR)", failed},
        {"no session", noAnswer, error("INTERNAL_ERROR"), "fatal_stt_error(INTERNAL_ERROR)", failed},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        notifications.clear();
        test.arrange();
        start();
        test.answer();
        EXPECT_TRUE(is<Status::RecordingOffline>()) << description();
        speak(5);
        clock.advance(500ms);
        EXPECT_TRUE(audio.isCapturing());
        stop();
        EXPECT_EQ(effects->lastReport()->reason, QString::fromLatin1(test.reason));
        EXPECT_TRUE(test.shown()) << description();
        EXPECT_FALSE(notifications.contains(notification::authRequired)) << "a window where signing in cannot help";
        ASSERT_EQ(records().size(), 1);
        EXPECT_EQ(records().front()->status, RecordStatus::pendingTranscription);
        EXPECT_EQ(records().front()->durationMs, 500);
        forgetRecords();
        expectQuiet();
        tokens.setAccessToken(u"token"_qs);
        auth.onAnonymousSession = nullptr;
        webSocket.connectErrors.clear();
        webSocket.sendError.reset();
        expectDictationWorks();
        forgetRecords();
    }
}

TEST_F(RecordingStartTests, aFailureThatNoCodeExpectedEndsTheDictationHonestly) {
    const auto fault = []() -> Task<> {
        throw std::runtime_error("unforeseen");
        co_return;
    };
    const std::vector<std::pair<const char*, std::function<void()>>> places{
        {"microphone",
         [&] {
             audio.beforeStart = fault;
             start();
         }},
        {"audio",
         [&] {
             webSocket.beforeAudio = fault;
             start();
             startSession();
             speak();
         }},
        {"the end of the dictation",
         [&] {
             record();
             injection.fault = std::runtime_error("unforeseen");
             stop();
             endSession(u"text"_qs);
         }},
    };
    for (const auto& [name, provoke] : places) {
        SCOPED_TRACE(name);
        QStringList reported;
        const auto strict = std::exchange(report, [&](const QString&, const QString& error) { reported << error; });
        provoke();
        EXPECT_EQ(reported, QStringList{u"unforeseen"_qs});
        EXPECT_TRUE(failedWith<RecordingError::Unknown>()) << description();
        expectQuiet();
        EXPECT_EQ(static_cast<size_t>(records().size()), AudioFileWriter::listPendingRecordings().size());
        audio.beforeStart = nullptr;
        webSocket.beforeAudio = nullptr;
        injection.fault.reset();
        report = strict;
        expectDictationWorks();
        forgetRecords();
    }
}

TEST_F(RecordingStartTests, aFaultInTheConnectionCostsNothingThatIsSaid) {
    QStringList reported;
    const auto strict = std::exchange(report, [&](const QString&, const QString& error) { reported << error; });
    webSocket.beforeConnect = []() -> Task<> {
        throw std::runtime_error("unforeseen");
        co_return;
    };
    start();
    speak(4);
    EXPECT_EQ(reported, QStringList{u"unforeseen"_qs});
    EXPECT_TRUE(is<Status::RecordingOffline>()) << description();
    clock.advance(500ms);
    stop();
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->status, RecordStatus::pendingTranscription);
    webSocket.beforeConnect = nullptr;
    report = strict;
    expectDictationWorks();
}

TEST_F(RecordingStartTests, aTokenThatTheServerRejectsIsRefreshedOnce) {
    struct Case {
        const char* name;
        bool expiresSoon;
        bool anonymous;
        std::optional<AuthError::Kind> refreshError;
        bool connects;
        bool asksToSignIn;
        int anonymousSessions;
    };
    using Kind = AuthError::Kind;
    const std::vector<Case> cases{
        {"refreshed after rejection", false, false, {}, true, false, 0},
        {"signed-in user rejected", false, false, Kind::authentication, false, true, 0},
        {"anonymous rejected", false, true, Kind::authentication, true, false, 1},
        {"server unreachable", false, true, Kind::transport, false, false, 0},
        {"expiring, refreshed", true, false, {}, true, false, 0},
        {"expiring, rejected", true, false, Kind::authentication, false, true, 0},
        {"expiring, unreachable", true, false, Kind::transport, false, false, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        notifications.clear();
        auth.refreshes = auth.anonymousSessions = 0;
        auth.user->isAnonymous = test.anonymous;
        auth.onRefresh = [kind = test.refreshError] {
            if (kind)
                throw AuthError(*kind, AuthError::Code::anonymousFailed, u"no"_qs);
        };
        tokens.setAccessTokenExpiresAt(clock.wallTime().addSecs(test.expiresSoon ? 10 : 3600));
        webSocket.connectErrors.clear();
        if (!test.expiresSoon)
            webSocket.connectErrors.emplace_back(WebSocketError::Code::connectionFailed, u"401"_qs, 401);
        start();
        EXPECT_EQ(auth.refreshes, 1);
        EXPECT_EQ(auth.anonymousSessions, test.anonymousSessions);
        EXPECT_EQ(webSocket.isConnected(), test.connects);
        EXPECT_EQ(is<Status::RecordingOffline>(), !test.connects) << description();
        EXPECT_FALSE(notifications.contains(notification::authRequired)) << "a window opens while the person speaks";
        speak(5);
        clock.advance(500ms);
        if (test.connects)
            cancel();
        else
            stop();
        EXPECT_EQ(notifications.contains(notification::authRequired), test.asksToSignIn);
        EXPECT_EQ(failedWith<RecordingError::ConnectionFailed>(), test.asksToSignIn) << description();
        if (test.asksToSignIn)
            EXPECT_EQ(store->state().status.error()->userMessage().key, u"error.signInNeeded"_qs);
        expectQuiet();
        tokens.setAccessTokenExpiresAt({});
        expectDictationWorks();
    }
}

TEST_F(RecordingStartTests, aServerThatIsAboutToStopIsAnnouncedAndTheDictationGoesOn) {
    record();
    notifications.clear();
    serverSays(server::Error{u"SERVER_STOPPING"_qs, u"soon"_qs});
    EXPECT_TRUE(notifications.contains(notification::userNotice));
    EXPECT_TRUE(is<Status::Recording>()) << description();
    cancel();
    expectQuiet();
}

TEST_F(RecordingStartTests, aDictationBegunWhileTheLastIsFinishedFollowsIt) {
    record();
    stop();
    start();
    EXPECT_TRUE(audio.isCapturing()) << "spoken into nothing";
    EXPECT_TRUE(is<Status::Connecting>()) << description();
    speak(4);
    EXPECT_EQ(webSocket.connects, 1) << "the last dictation still has the connection";
    endSession(u"first"_qs);
    ASSERT_EQ(injection.calls.size(), 1U);
    EXPECT_TRUE(is<Status::Connecting>()) << "the last dictation's end ended this one: " << description();
    EXPECT_EQ(webSocket.connects, 2);
    startSession();
    clock.advance(500ms);
    stop();
    // And a third, cancelled while it waits for the second.
    start();
    speak(1);
    cancel();
    EXPECT_TRUE(webSocket.isConnected());
    endSession(u"second"_qs);
    ASSERT_EQ(injection.calls.size(), 2U);
    EXPECT_EQ(injection.calls.back().text, u"second"_qs);
    expectQuiet();
    expectDictationWorks();
}

TEST_F(RecordingStartTests, aDictationBegunWhileTheLastOnesEndIsOnItsWayGoesOn) {
    record();
    stop();
    // The key goes down after the text is there, and before the store knows that the dictation has ended.
    injection.onInject = [this] { store->send(action::StartRecording{}); };
    endSession(QStringLiteral("first"));
    injection.onInject = {};
    ASSERT_EQ(injection.calls.size(), 1U);
    EXPECT_TRUE(is<Status::Connecting>()) << description();
    EXPECT_TRUE(audio.isCapturing()) << "spoken into nothing";
    cancel();
    expectQuiet();
}

TEST_F(RecordingStartTests, aSilentMicrophoneIsRestartedOnceAndThenNamed) {
    start();
    clock.advance(600ms);
    EXPECT_EQ(audio.starts(), 2);
    EXPECT_TRUE(is<Status::Connecting>()) << description();
    clock.advance(600ms);
    ASSERT_TRUE(failedWith<RecordingError::AudioCaptureFailed>()) << description();
    EXPECT_TRUE(store->state().status.error()->detail().contains(u"'Microphone'"_qs));
    expectQuiet();
    expectDictationWorks();
}

TEST_F(RecordingStartTests, aSlowHeadsetIsWaitedForWithoutARestart) {
    audio.isSlow = true;
    for (const bool comes : {true, false}) {
        SCOPED_TRACE(comes);
        const int before = audio.starts();
        start();
        clock.advance(600ms);
        EXPECT_EQ(store->state().awaitedMicrophone, u"Microphone"_qs);
        clock.advance(4300ms);
        EXPECT_EQ(audio.starts(), before + 1);
        EXPECT_TRUE(audio.isCapturing());
        if (comes) {
            audio.speak();
            settle();
            clock.advance(5s);
            EXPECT_EQ(store->state().awaitedMicrophone, QString());
            EXPECT_TRUE(audio.isCapturing());
            store->send(action::CancelRecording{});
            settle();
        } else {
            clock.advance(100ms);
            EXPECT_TRUE(failedWith<RecordingError::AudioCaptureFailed>()) << description();
        }
        expectQuiet();
    }
}

TEST_F(RecordingStartTests, withoutAMicrophoneTheUserReadsWhatToDo) {
    audio.nextStartError = AudioServiceError(AudioServiceError::Code::noDevice, u"for the log"_qs);
    start();
    ASSERT_TRUE(failedWith<RecordingError::AudioCaptureFailed>()) << description();
    EXPECT_EQ(store->state().status.error()->userMessage(), UserMessage{u"microphone.none"_qs});
    expectQuiet();
}

} // namespace

} // namespace quillo::test
