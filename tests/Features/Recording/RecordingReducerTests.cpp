#include "Features/Recording/RecordingReducer.h"

#include <gtest/gtest.h>

using namespace quillo;

namespace {

const QDateTime startOfDay(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC);

/// On a clock that advances by a second with each reading.
RecordingReducer makeReducer() {
    return RecordingReducer([time = startOfDay]() mutable { return time = time.addSecs(1); });
}

/// The next state alone.
RecordingState reduce(const RecordingState& state, const RecordingAction& action) {
    return makeReducer().reduce(state, action).state;
}

RecordingState::Status connectionFailed() { return RecordingError(RecordingError::ConnectionFailed{u"x"_qs}); }

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

/// One column per status of `everyStatus`.
struct Row {
    RecordingAction action;
    std::array<const char*, 6> columns;
};

std::array<const char*, 6> always(const char* word) { return {word, word, word, word, word, word}; }

std::string nameOf(const RecordingAction& action, const RecordingState::Status& status) {
    return (actionName(action) + u" from "_qs + status.description()).toStdString();
}

/// The columns hold the status after the action; "." means unchanged.
TEST(RecordingReducer, MovesTheStatusAsTheTableSays) {
    const QString why = u"y"_qs;
    const std::vector<Row> table{
        {action::StartRecording{}, {"connecting", "connecting", ".", ".", ".", "connecting"}},
        {action::StopRecording{}, {".", ".", "processing", "processing", "processing", "."}},
        {action::InterruptRecording{}, {".", ".", "processing", "processing", "processing", "."}},
        {action::CancelRecording{}, always("idle")},
        {action::SessionStarted{u"s"_qs, false}, {".", ".", "recording", ".", ".", "."}},
        {action::SwitchedToOffline{}, {".", ".", "recordingOffline", "recordingOffline", ".", "."}},
        {action::SessionStartFailed{why}, always("error(sessionStartFailed)")},
        {action::ConnectionFailed{why}, always("error(connectionFailed)")},
        {action::AudioCaptureFailed{why}, always("error(audioCaptureFailed)")},
        {action::TranscriptionError{why}, always("error(transcriptionFailed)")},
        {action::ShowCancelledMessage{}, always("error(cancelled)")},
        {action::RecordingCompleted{}, always("idle")},
        {action::Reset{}, always("idle")},
        {action::ConnectionLost{why, u"saved"_qs}, always(".")},
        {action::SessionEnded{}, always(".")},
        {action::CommandResult{}, always(".")},
        {action::TextInjectionFailed{why}, always(".")},
    };
    for (const auto& row : table)
        for (size_t i = 0; i < everyStatus().size(); ++i) {
            const auto& before = everyStatus()[i];
            const auto after = reduce(withStatus(before), row.action).status;
            const auto expected =
                std::string_view(row.columns[i]) == "." ? before.description() : QString::fromLatin1(row.columns[i]);
            EXPECT_EQ(after.description(), expected) << nameOf(row.action, before);
        }
}

/// The columns hold the first word of the effect; "-" is no work.
TEST(RecordingReducer, NamesTheWorkThatAnActionLeadsTo) {
    const std::vector<Row> table{
        {action::StartRecording{}, {"begin", "begin", "-", "-", "-", "begin"}},
        {action::StopRecording{}, {"-", "-", "end", "end", "end", "-"}},
        {action::InterruptRecording{}, always("interrupt")},
        {action::CancelRecording{}, always("cancel")},
        {action::Reset{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::RecordingCompleted{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::AudioCaptureFailed{}, {"-", "-", "leave", "leave", "leave", "leave"}},
        {action::SwitchedToOffline{}, always("-")},
        {action::AudioLevelUpdated{0.5F}, always("-")},
    };
    for (const auto& row : table)
        for (size_t i = 0; i < everyStatus().size(); ++i) {
            const auto effect = makeReducer().reduce(withStatus(everyStatus()[i]), row.action).effect;
            const auto word = effect ? std::string(effectIdentity(*effect).name) : std::string("-");
            EXPECT_EQ(word.substr(0, word.find(' ')), row.columns[i]) << nameOf(row.action, everyStatus()[i]);
        }
}

TEST(RecordingReducer, AStartClearsTheSessionAndMovesThePendingConfirmation) {
    RecordingState used = withStatus(connectionFailed());
    used.isHandsOff = true;
    used.meetingPreConfirmed = true;
    used.partialText = used.finalText = used.detectedLanguage = u"old"_qs;
    used.confidence = used.audioLevel = used.systemAudioLevel = 0.5F;
    used.chunksSent = 12;
    used.sessionId = u"s1"_qs;
    used.savedToHistoryHintVisible = true;
    used.savedToHistoryHintMessage = UserMessage{u"hint"_qs};
    used.commandStatusMessage = UserMessage{u"of the last dictation"_qs};
    used.isHovering = true;
    used.meetingTotalWords = 4;

    RecordingState expected;
    expected.status = RecordingState::Connecting{};
    expected.isHandsOff = true;
    expected.isHovering = true;
    expected.meetingPreConfirmedSnapshot = true;
    expected.startTime = startOfDay.addSecs(1);
    const auto reducer = makeReducer();
    const auto started = reducer.reduce(used, action::StartRecording{}).state;
    EXPECT_EQ(started, expected);
    EXPECT_EQ(reducer.reduce(started, action::StartRecording{}).state.startTime, expected.startTime)
        << "a second press restarted the first recording";
}

TEST(RecordingReducer, FinalsAccumulateAndAnEmptyOneOnlyClearsThePartial) {
    RecordingState state = withStatus(RecordingState::Recording{});
    const auto final = [](const QString& text) {
        return action::FinalTranscriptReceived{{.text = text, .language = u"en"_qs, .confidence = 0.75}};
    };
    for (const auto& text : {u"first"_qs, QString(), u"second"_qs}) {
        state = reduce(state, action::PartialTranscriptReceived{u"half"_qs, 0.5F, {}, {}});
        EXPECT_EQ(state.partialText, u"half"_qs);
        state = reduce(state, final(text));
        EXPECT_TRUE(state.partialText.isEmpty());
    }
    EXPECT_EQ(state.finalText, u"first second"_qs);
    EXPECT_EQ(state.detectedLanguage, u"en"_qs);
    EXPECT_FLOAT_EQ(state.confidence, 0.75F);
}

TEST(RecordingReducer, TheResultStaysReadableAfterCompletionAndTheHoverAfterAReset) {
    RecordingState state = withStatus(RecordingState::Processing{});
    state.finalText = u"hello"_qs;
    state.detectedLanguage = u"en"_qs;
    state.isHovering = true;
    state.sessionId = u"s"_qs;
    RecordingState completed;
    completed.finalText = state.finalText;
    completed.detectedLanguage = state.detectedLanguage;
    EXPECT_EQ(reduce(state, action::RecordingCompleted{}), completed);
    RecordingState reset;
    reset.isHovering = true;
    EXPECT_EQ(reduce(state, action::Reset{}), reset);
}

TEST(RecordingReducer, ALateSessionAfterACancelIsNotedAndStartsNothing) {
    auto state = reduce(RecordingState(), action::StartRecording{});
    state = reduce(state, action::CancelRecording{});
    state = reduce(state, action::SessionStarted{u"late"_qs, false});
    EXPECT_TRUE(state.status.is<RecordingState::Idle>());
    EXPECT_EQ(state.sessionId, u"late"_qs);
}

TEST(RecordingReducer, RecoveredTextIsKeptOnlyWhenThereIsSome) {
    RecordingState state = withStatus(RecordingState::Recording{});
    state.finalText = u"before"_qs;
    EXPECT_EQ(reduce(state, action::ConnectionLost{u"e"_qs, QString()}).finalText, u"before"_qs);
    EXPECT_EQ(reduce(state, action::ConnectionLost{u"e"_qs, u"saved"_qs}).finalText, u"saved"_qs);
}

TEST(RecordingReducer, TheCommandLineShowsAtMostFortyCharactersOfThePhrase) {
    auto state = reduce({}, action::CommandDetected{QString(100, u'w'), u"preset"_qs});
    EXPECT_EQ(state.commandStatusMessage->arguments, QStringList{QString(40, u'w')});
    state = reduce(state, action::CommandProcessing{});
    EXPECT_EQ(state.commandStatusMessage->key, u"pill.commandProcessing"_qs);
    state = reduce(state, action::CommandResult{});
    EXPECT_FALSE(state.commandStatusMessage);
}

} // namespace
