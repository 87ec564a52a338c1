#include "Features/Recording/RecordingReducer.h"

#include <gtest/gtest.h>

using namespace quillo;

namespace {

const QDateTime startOfDay(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC);

/// The next state alone.
struct States {
    RecordingReducer reducer{[time = startOfDay]() mutable {
        time = time.addSecs(1);
        return time;
    }};
    [[nodiscard]] RecordingState reduce(const RecordingState& state, const RecordingAction& action) const {
        return reducer.reduce(state, action).state;
    }
};

States makeReducer() { return {}; }

RecordingState::Status connectionFailed() {
    return RecordingError(RecordingError::ConnectionFailed{QStringLiteral("x")});
}

RecordingState withStatus(RecordingState::Status status) {
    RecordingState state;
    state.status = std::move(status);
    return state;
}

const std::vector<RecordingState::Status>& everyStatus() {
    static const std::vector<RecordingState::Status> all{
        connectionFailed(),
        RecordingState::Idle{},
        RecordingState::Connecting{},
        RecordingState::Recording{},
        RecordingState::RecordingOffline{},
        RecordingState::Processing{},
    };
    return all;
}

TEST(RecordingReducer, MovesTheStatusAsTheTableSays) {
    // One column per status of `everyStatus`; what stands there is the status after the action, "." means unchanged.
    struct Row {
        RecordingAction action;
        std::array<const char*, 6> after;
    };
    const QString why = QStringLiteral("y");
    const std::vector<Row> table{
        {action::StartRecording{}, {"connecting", "connecting", ".", ".", ".", "connecting"}},
        {action::StopRecording{}, {".", ".", "processing", "processing", "processing", "."}},
        {action::InterruptRecording{}, {".", ".", "processing", "processing", "processing", "."}},
        {action::CancelRecording{}, {"idle", "idle", "idle", "idle", "idle", "idle"}},
        {action::SessionStarted{QStringLiteral("s"), false}, {".", ".", "recording", ".", ".", "."}},
        {action::SwitchedToOffline{}, {".", ".", "recordingOffline", "recordingOffline", ".", "."}},
        {action::SessionStartFailed{why},
         {"error(sessionStartFailed)", "error(sessionStartFailed)", "error(sessionStartFailed)",
          "error(sessionStartFailed)", "error(sessionStartFailed)", "error(sessionStartFailed)"}},
        {action::ConnectionFailed{why},
         {"error(connectionFailed)", "error(connectionFailed)", "error(connectionFailed)", "error(connectionFailed)",
          "error(connectionFailed)", "error(connectionFailed)"}},
        {action::AudioCaptureFailed{why},
         {"error(audioCaptureFailed)", "error(audioCaptureFailed)", "error(audioCaptureFailed)",
          "error(audioCaptureFailed)", "error(audioCaptureFailed)", "error(audioCaptureFailed)"}},
        {action::TranscriptionError{why},
         {"error(transcriptionFailed)", "error(transcriptionFailed)", "error(transcriptionFailed)",
          "error(transcriptionFailed)", "error(transcriptionFailed)", "error(transcriptionFailed)"}},
        {action::ShowCancelledMessage{},
         {"error(cancelled)", "error(cancelled)", "error(cancelled)", "error(cancelled)", "error(cancelled)",
          "error(cancelled)"}},
        {action::RecordingCompleted{}, {"idle", "idle", "idle", "idle", "idle", "idle"}},
        {action::Reset{}, {"idle", "idle", "idle", "idle", "idle", "idle"}},
        {action::ConnectionLost{why, QStringLiteral("saved")}, {".", ".", ".", ".", ".", "."}},
        {action::SessionEnded{}, {".", ".", ".", ".", ".", "."}},
        {action::CommandResult{}, {".", ".", ".", ".", ".", "."}},
        {action::TextInjectionFailed{why}, {".", ".", ".", ".", ".", "."}},
    };
    const auto reducer = makeReducer();
    for (const auto& row : table)
        for (size_t i = 0; i < everyStatus().size(); ++i) {
            const auto& before = everyStatus()[i];
            const auto after = reducer.reduce(withStatus(before), row.action).status;
            const auto expected =
                std::string_view(row.after[i]) == "." ? before.description() : QString::fromLatin1(row.after[i]);
            EXPECT_EQ(after.description(), expected)
                << actionName(row.action).toStdString() << " from " << before.description().toStdString();
        }
}

TEST(RecordingReducer, NamesTheWorkThatAnActionLeadsTo) {
    // One column per status of `everyStatus`; "-" is no work.
    struct Row {
        RecordingAction action;
        std::array<const char*, 6> work;
    };
    const std::vector<Row> table{
        {action::StartRecording{}, {"begin", "begin", "-", "-", "-", "begin"}},
        {action::StopRecording{}, {"-", "-", "end", "end", "end", "-"}},
        {action::InterruptRecording{}, {"interrupt", "interrupt", "interrupt", "interrupt", "interrupt", "interrupt"}},
        {action::CancelRecording{}, {"cancel", "cancel", "cancel", "cancel", "cancel", "cancel"}},
        {action::Reset{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::RecordingCompleted{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::AudioCaptureFailed{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::SwitchedToOffline{}, {"-", "-", "-", "-", "-", "-"}},
        {action::AudioLevelUpdated{0.5F}, {"-", "-", "-", "-", "-", "-"}},
    };
    for (const auto& row : table)
        for (size_t i = 0; i < everyStatus().size(); ++i) {
            const auto effect = makeReducer().reducer.reduce(withStatus(everyStatus()[i]), row.action).effect;
            const auto word = effect ? std::string(effectIdentity(*effect).name) : std::string("-");
            EXPECT_EQ(word.substr(0, word.find(' ')), row.work[i])
                << actionName(row.action).toStdString() << " from " << everyStatus()[i].description().toStdString();
        }
}

TEST(RecordingReducer, ActionsWithoutAFieldOfTheirOwnChangeNothing) {
    RecordingState state = withStatus(RecordingState::Recording{});
    state.partialText = QStringLiteral("half");
    for (const RecordingAction& action :
         {RecordingAction(action::ConnectionEstablished{}), RecordingAction(action::AudioCaptureStarted{}),
          RecordingAction(action::TextInjected{}),
          RecordingAction(action::MeetingTextUpdated{QStringLiteral("a"), QStringLiteral("b"), 3})})
        EXPECT_EQ(makeReducer().reduce(state, action), state) << actionName(action).toStdString();
}

TEST(RecordingReducer, AStartClearsTheSessionAndMovesThePendingConfirmation) {
    const auto reducer = makeReducer();
    RecordingState used = withStatus(connectionFailed());
    used.isHandsOff = true;
    used.meetingPreConfirmed = true;
    used.partialText = used.finalText = used.detectedLanguage = QStringLiteral("old");
    used.confidence = used.audioLevel = used.systemAudioLevel = 0.5F;
    used.chunksSent = 12;
    used.sessionId = QStringLiteral("s1");
    used.savedToHistoryHintVisible = true;
    used.savedToHistoryHintMessage = UserMessage{QStringLiteral("hint")};
    used.commandStatusMessage = UserMessage{QStringLiteral("of the last dictation")};
    used.isHovering = true;
    used.meetingTotalWords = 4;

    RecordingState expected;
    expected.status = RecordingState::Connecting{};
    expected.isHandsOff = true;
    expected.isHovering = true;
    expected.meetingPreConfirmedSnapshot = true;
    expected.startTime = startOfDay.addSecs(1);
    const auto started = reducer.reduce(used, action::StartRecording{});
    EXPECT_EQ(started, expected);
    EXPECT_EQ(reducer.reduce(started, action::StartRecording{}).startTime, expected.startTime)
        << "a second press restarted the first recording";
}

TEST(RecordingReducer, FinalsAccumulateAndAnEmptyOneOnlyClearsThePartial) {
    const auto reducer = makeReducer();
    RecordingState state = withStatus(RecordingState::Recording{});
    const auto final = [](const QString& text) {
        return action::FinalTranscriptReceived{{.text = text, .language = QStringLiteral("en"), .confidence = 0.75}};
    };
    for (const auto& text : {QStringLiteral("first"), QString(), QStringLiteral("second")}) {
        state = reducer.reduce(state, action::PartialTranscriptReceived{QStringLiteral("half"), 0.5F, {}, {}});
        EXPECT_EQ(state.partialText, QStringLiteral("half"));
        state = reducer.reduce(state, final(text));
        EXPECT_TRUE(state.partialText.isEmpty());
    }
    EXPECT_EQ(state.finalText, QStringLiteral("first second"));
    EXPECT_EQ(state.detectedLanguage, QStringLiteral("en"));
    EXPECT_FLOAT_EQ(state.confidence, 0.75F);
}

TEST(RecordingReducer, TheResultStaysReadableAfterCompletionAndTheHoverAfterAReset) {
    RecordingState state = withStatus(RecordingState::Processing{});
    state.finalText = QStringLiteral("hello");
    state.detectedLanguage = QStringLiteral("en");
    state.isHovering = true;
    state.sessionId = QStringLiteral("s");
    RecordingState completed;
    completed.finalText = state.finalText;
    completed.detectedLanguage = state.detectedLanguage;
    EXPECT_EQ(makeReducer().reduce(state, action::RecordingCompleted{}), completed);
    RecordingState reset;
    reset.isHovering = true;
    EXPECT_EQ(makeReducer().reduce(state, action::Reset{}), reset);
}

TEST(RecordingReducer, ALateSessionAfterACancelIsNotedAndStartsNothing) {
    const auto reducer = makeReducer();
    auto state = reducer.reduce(RecordingState(), action::StartRecording{});
    state = reducer.reduce(state, action::CancelRecording{});
    state = reducer.reduce(state, action::SessionStarted{QStringLiteral("late"), false});
    EXPECT_TRUE(state.status.is<RecordingState::Idle>());
    EXPECT_EQ(state.sessionId, QStringLiteral("late"));
}

TEST(RecordingReducer, RecoveredTextIsKeptOnlyWhenThereIsSome) {
    RecordingState state = withStatus(RecordingState::Recording{});
    state.finalText = QStringLiteral("before");
    EXPECT_EQ(makeReducer().reduce(state, action::ConnectionLost{QStringLiteral("e"), QString()}).finalText,
              QStringLiteral("before"));
    EXPECT_EQ(
        makeReducer().reduce(state, action::ConnectionLost{QStringLiteral("e"), QStringLiteral("saved")}).finalText,
        QStringLiteral("saved"));
}

TEST(RecordingReducer, TheCommandLineShowsAtMostFortyCharactersOfThePhrase) {
    const auto reducer = makeReducer();
    auto state = reducer.reduce({}, action::CommandDetected{QString(100, u'w'), QStringLiteral("preset")});
    EXPECT_EQ(state.commandStatusMessage->arguments, QStringList{QString(40, u'w')});
    state = reducer.reduce(state, action::CommandProcessing{});
    EXPECT_EQ(state.commandStatusMessage->key, QStringLiteral("pill.commandProcessing"));
    state = reducer.reduce(state, action::CommandResult{});
    EXPECT_FALSE(state.commandStatusMessage);
}

} // namespace
