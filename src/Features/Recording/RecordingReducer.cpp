#include "Features/Recording/RecordingReducer.h"

#include "Core/DictatedText.h"
#include "Core/Log.h"

namespace quillo {

namespace {

using Status = RecordingState::Status;

/// Length of a command's phrase in the status line.
constexpr int commandLabelLength = 40;

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("Reducer")); }

/// Applies one action to a copy of the state; one overload per action, in the order of `RecordingAction`.
struct Transition {
    RecordingState& state;
    std::optional<RecordingEffect>& effect;
    const std::function<QDateTime()>& wallTime;

    void operator()(const action::SetHovering& action) const { state.isHovering = action.hovering; }
    void operator()(const action::SetHandsOff& action) const { state.isHandsOff = action.handsOff; }
    void operator()(const action::SetMeetingPreConfirmed& action) const {
        state.meetingPreConfirmed = action.confirmed;
    }

    void operator()(const action::ConnectionFailed& action) const {
        log(QStringLiteral("[Reducer] ❌ Connection failed: %1").arg(action.reason), LogLevel::error);
        state.status = RecordingError(RecordingError::ConnectionFailed{action.reason});
    }

    void operator()(const action::ConnectionLost& action) const {
        log(QStringLiteral("[Reducer] ⚠️ Connection lost! Error: %1").arg(action.error), LogLevel::warn);
        if (action.recoveredText.isEmpty())
            return;
        log(QStringLiteral("[Reducer] 💾 Recovered text: %1").arg(dictated(action.recoveredText)));
        state.finalText = action.recoveredText;
        log(QStringLiteral("[Reducer] ✅ Recovered text saved to state"));
    }

    void operator()(const action::SessionStarted& action) const {
        log(QStringLiteral("[Reducer] 🎯 sessionStarted received! sessionId: %1").arg(action.sessionId));
        state.sessionId = action.sessionId;
        if (state.status.is<RecordingState::Connecting>()) {
            state.status = RecordingState::Recording{};
            log(QStringLiteral("[Reducer] ✅ Status changed to RECORDING"));
        } else {
            log(QStringLiteral("[Reducer] ℹ️ sessionStarted received but status is %1 — keeping current status")
                    .arg(state.status.description()));
        }
    }

    void operator()(const action::SessionStartFailed& action) const {
        log(QStringLiteral("[Reducer] ❌ Session start failed: %1").arg(action.reason), LogLevel::error);
        state.status = RecordingError(RecordingError::SessionStartFailed{});
    }

    void operator()(const action::AudioChunkCaptured&) const {
        // Avoid an overflow; 2^31 chunks are six years of recording.
        if (state.chunksSent == std::numeric_limits<int>::max())
            qFatal("The count of captured audio chunks has overflowed.");
        ++state.chunksSent;
        state.awaitedMicrophone.clear();
    }

    void operator()(const action::AudioLevelUpdated& action) const { state.audioLevel = action.level; }
    void operator()(const action::SystemAudioLevelUpdated& action) const { state.systemAudioLevel = action.level; }

    void operator()(const action::AudioCaptureFailed& action) const {
        log(QStringLiteral("[Reducer] ❌ Audio capture failed: %1").arg(action.reason), LogLevel::error);
        state.status = RecordingError(RecordingError::AudioCaptureFailed{action.reason, action.words});
    }

    void operator()(const action::PartialTranscriptReceived& action) const {
        state.partialText = action.text;
        state.confidence = action.confidence;
    }

    void operator()(const action::FinalTranscriptReceived& action) const {
        const auto& result = action.result;
        if (!result.text.isEmpty())
            state.finalText =
                state.finalText.isEmpty() ? result.text : state.finalText + QLatin1Char(' ') + result.text;
        state.detectedLanguage = result.language.value_or(QString());
        state.confidence = static_cast<float>(result.confidence.value_or(0));
        state.partialText.clear();
    }

    // The live text of a meeting is not part of the state.
    void operator()(const action::MeetingTextUpdated&) const {}

    void operator()(const action::SessionEnded&) const { state.partialText.clear(); }

    void operator()(const action::TranscriptionError& action) const {
        log(QStringLiteral("[Reducer] ❌ Transcription error: %1").arg(action.message), LogLevel::error);
        state.status = RecordingError(RecordingError::TranscriptionFailed{action.message});
    }

    void operator()(const action::CommandDetected& action) const {
        state.commandStatusMessage =
            UserMessage{QStringLiteral("pill.command"), {action.commandText.left(commandLabelLength)}};
    }

    void operator()(const action::CommandResult&) const { state.commandStatusMessage.reset(); }
    void operator()(const action::TextInjectionFailed&) const {}

    void operator()(const action::RecordingFailed& action) const {
        log(QStringLiteral("[Reducer] ❌ Recording failed: %1 %2")
                .arg(action.error.messageKey(), action.error.detail()),
            LogLevel::error);
        state.status = action.error;
    }

    void operator()(const action::StartRecording& action) const {
        // The next dictation may begin while the last one is finishing, so that no speech is lost.
        if (state.status.isActive())
            return;
        RecordingState next;
        next.status = RecordingState::Connecting{};
        next.startTime = wallTime();
        next.isHandsOff = state.isHandsOff;
        next.isHovering = state.isHovering;
        next.meetingPreConfirmedSnapshot = state.meetingPreConfirmed;
        next.activeApplicationName = state.activeApplicationName;
        state = std::move(next);
        effect = effect::BeginDictation{action.askedAt};
    }

    void operator()(const action::StopRecording&) const {
        if (!state.status.isActive())
            return;
        state.status = RecordingState::Processing{};
        state.isHandsOff = false;
        state.meetingPreConfirmed = false;
        effect = effect::EndDictation{};
    }

    void operator()(const action::InterruptRecording&) const {
        (*this)(action::StopRecording{});
        effect = effect::InterruptDictation{};
    }

    void operator()(const action::CancelRecording&) const {
        state.status = RecordingState::Idle{};
        state.partialText.clear();
        state.sessionId.reset();
        state.isHandsOff = false;
        state.meetingPreConfirmed = false;
        effect = effect::CancelDictation{};
    }

    void operator()(const action::ShowCancelledMessage&) const {
        state.status = RecordingError(RecordingError::Cancelled{});
        state.isHandsOff = false;
        state.meetingPreConfirmed = false;
    }

    void operator()(const action::ShowSavedToHistory&) const {
        state.savedToHistoryHintVisible = true;
        state.savedToHistoryHintMessage.reset();
    }

    void operator()(const action::ShowMeetingProcessingHint&) const {
        state.savedToHistoryHintVisible = true;
        state.savedToHistoryHintMessage = UserMessage{QStringLiteral("pill.meetingProcessing")};
    }

    void operator()(const action::HideSavedToHistory&) const {
        state.savedToHistoryHintVisible = false;
        state.savedToHistoryHintMessage.reset();
    }

    void operator()(const action::ConnectionEstablished&) const {}
    void operator()(const action::AudioCaptureStarted&) const {}

    void operator()(const action::CommandProcessing&) const {
        state.commandStatusMessage = UserMessage{QStringLiteral("pill.commandProcessing")};
    }

    void operator()(const action::TextInjected&) const {}

    void operator()(const action::RecordingCompleted&) const {
        // The last result stays readable after completion.
        RecordingState next;
        next.finalText = state.finalText;
        next.detectedLanguage = state.detectedLanguage;
        state = std::move(next);
    }

    void operator()(const action::Reset&) const {
        // The pointer may still be over the indicator.
        RecordingState next;
        next.isHovering = state.isHovering;
        state = std::move(next);
    }

    void operator()(const action::SwitchedToOffline&) const {
        if (state.status.is<RecordingState::Recording>() || state.status.is<RecordingState::Connecting>())
            state.status = RecordingState::RecordingOffline{};
    }

    void operator()(const action::ShowHint& action) const {
        state.savedToHistoryHintVisible = true;
        state.savedToHistoryHintMessage = action.message;
    }

    void operator()(const action::TargetApplicationCaptured& action) const {
        state.activeApplicationName = action.name;
    }

    void operator()(const action::MicrophoneAwaited& action) const { state.awaitedMicrophone = action.device; }
};

} // namespace

RecordingReducer::RecordingReducer(std::function<QDateTime()> wallTime) : m_wallTime(std::move(wallTime)) {}

Reduction<RecordingState, RecordingEffect> RecordingReducer::reduce(const RecordingState& state,
                                                                    const RecordingAction& action) const {
    Reduction<RecordingState, RecordingEffect> next(state);
    std::visit(Transition{next.state, next.effect, m_wallTime}, action);
    if (!next.effect && state.status.isUnderWay() && !next.state.status.isUnderWay())
        next.effect = effect::LeaveDictation{actionName(action)};
    return next;
}

} // namespace quillo
