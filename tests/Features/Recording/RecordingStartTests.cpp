#include "RecordingFixture.h"

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

class RecordingStartTests : public RecordingFixture {};

TEST_F(RecordingStartTests, aDictationGoesFromTheKeyToTheText) {
    start();
    EXPECT_EQ(audio.calls.value(0), QStringLiteral("startCapture"));
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
    endSession(QStringLiteral("hello"));
    ASSERT_EQ(injection.calls.size(), 1U);
    EXPECT_EQ(injection.calls.front().text, QStringLiteral("hello"));
    EXPECT_TRUE(is<Status::Idle>()) << description();
    expectQuiet();
    ASSERT_TRUE(effects->lastReport());
    EXPECT_EQ(effects->lastReport()->reason, QStringLiteral("completed"));
    EXPECT_EQ(effects->lastReport()->text, QStringLiteral("hello"));
    expectDictationWorks();
}

TEST_F(RecordingStartTests, aFailedStartLeavesNothingOpenAndTheNextWorks) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::function<void()> mend;
        std::function<bool()> expected;
    };
    const auto rejected = WebSocketError(WebSocketError::Code::connectionFailed, QStringLiteral("401"), 401);
    const std::vector<Case> cases{
        {"no network", [&] { network.connected = false; }, [&] { network.connected = true; },
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
        {"rejected twice",
         [&, rejected] {
             webSocket.connectErrors = {rejected, rejected};
         },
         [] {},
         [&] {
             return failedWith<RecordingError::ConnectionFailed>() && auth.refreshes == 1 && webSocket.connects == 2;
         }},
        {"start_session not sent", [&] { webSocket.sendError = WebSocketError(WebSocketError::Code::notConnected); },
         [&] { webSocket.sendError.reset(); }, [&] { return failedWith<RecordingError::SessionStartFailed>(); }},
    };
    for (const auto& [name, arrange, mend, expected] : cases) {
        SCOPED_TRACE(name);
        auth.refreshes = webSocket.connects = 0;
        arrange();
        start();
        EXPECT_TRUE(expected()) << description();
        expectQuiet();
        mend();
        expectDictationWorks();
    }
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
                throw AuthError(*kind, AuthError::Code::anonymousFailed, QStringLiteral("no"));
        };
        tokens.setAccessTokenExpiresAt(clock.wallTime().addSecs(test.expiresSoon ? 10 : 3600));
        webSocket.connectErrors.clear();
        if (!test.expiresSoon)
            webSocket.connectErrors.emplace_back(WebSocketError::Code::connectionFailed, QStringLiteral("401"), 401);
        start();
        EXPECT_EQ(auth.refreshes, 1);
        EXPECT_EQ(auth.anonymousSessions, test.anonymousSessions);
        EXPECT_EQ(webSocket.isConnected(), test.connects);
        EXPECT_EQ(notifications.contains(notification::authRequired), test.asksToSignIn);
        EXPECT_EQ(failedWith<RecordingError::ConnectionFailed>(), !test.connects) << description();
        if (test.connects)
            cancel();
        expectQuiet();
        tokens.setAccessTokenExpiresAt({});
        expectDictationWorks();
    }
}

TEST_F(RecordingStartTests, aSilentMicrophoneIsRestartedOnceAndThenNamed) {
    start();
    clock.advance(600ms);
    EXPECT_EQ(audio.starts(), 2);
    EXPECT_TRUE(is<Status::Connecting>()) << description();
    clock.advance(600ms);
    ASSERT_TRUE(failedWith<RecordingError::AudioCaptureFailed>()) << description();
    EXPECT_TRUE(store->state().status.error()->detail().contains(QStringLiteral("'Microphone'")));
    expectQuiet();
    expectDictationWorks();
}

} // namespace

} // namespace quillo::test
