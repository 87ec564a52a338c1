#pragma once

#include "Concurrency/Clock.h"
#include "Core/AudioChunk.h"
#include "Core/TranscriptionResult.h"
#include "Features/Recording/RecordingError.h"

#include <QString>

#include <optional>
#include <variant>

namespace quillo {

/// Every event that can change a dictation.
namespace action {
// With a payload.
struct SetHovering {
    bool hovering = false;
};
struct SetHandsOff {
    bool handsOff = false;
};
struct SetMeetingPreConfirmed {
    bool confirmed = false;
};
struct ConnectionFailed {
    QString reason;
};
struct ConnectionLost {
    QString error;
    QString recoveredText;
};
struct SessionStarted {
    QString sessionId;
    bool isMeeting = false;
};
struct SessionStartFailed {
    QString reason;
};
struct AudioChunkCaptured {
    AudioChunk chunk;
};
struct AudioLevelUpdated {
    float level = 0;
};
struct SystemAudioLevelUpdated {
    float level = 0;
};
struct AudioCaptureFailed {
    QString reason;
    UserMessage words = {};
};
struct PartialTranscriptReceived {
    QString text;
    float confidence = 0;
    std::optional<QString> speaker;
    std::optional<QString> sourceChannel;
};
struct FinalTranscriptReceived {
    TranscriptionResult result;
};
struct MeetingTextUpdated {
    QString labeledText;
    QString plainText;
    int totalWords = 0;
};
struct SessionEnded {
    std::optional<QString> metricsId;
};
struct TranscriptionError {
    QString message;
};
struct CommandDetected {
    QString commandText;
    QString commandType;
};
struct CommandResult {
    QString processedText;
    QString originalText;
};
struct TextInjectionFailed {
    QString reason;
};
struct RecordingFailed {
    RecordingError error;
};
/// With the time at which the user asked, when that was before now: a key is heard of late on a busy machine.
struct StartRecording {
    std::optional<Clock::Instant> askedAt = {};
};
// Without a payload.
struct StopRecording {};
/// The user has left the desktop: stop, and insert no text of any dictation under way.
struct InterruptRecording {};
struct CancelRecording {};
struct ShowCancelledMessage {};
struct ShowSavedToHistory {};
struct ShowMeetingProcessingHint {};
struct HideSavedToHistory {};
struct ConnectionEstablished {};
struct AudioCaptureStarted {};
struct CommandProcessing {};
struct TextInjected {};
struct RecordingCompleted {};
struct Reset {};
/// The connection is lost and the recording continues on disk only.
struct SwitchedToOffline {};
/// Show a short message to the user.
struct ShowHint {
    UserMessage message;
};
/// The microphone is open, and its first sample takes a while.
struct MicrophoneAwaited {
    QString device;
};
/// The application that will receive the text is known.
struct TargetApplicationCaptured {
    QString name;
};
} // namespace action

/// One of the actions. Its copies and moves are compiled once: the table of cases made them a third of the work of
/// compiling each file that sends an action.
class RecordingAction
    : public std::variant<
          action::SetHovering, action::SetHandsOff, action::SetMeetingPreConfirmed, action::ConnectionFailed,
          action::ConnectionLost, action::SessionStarted, action::SessionStartFailed, action::AudioChunkCaptured,
          action::AudioLevelUpdated, action::SystemAudioLevelUpdated, action::AudioCaptureFailed,
          action::PartialTranscriptReceived, action::FinalTranscriptReceived, action::MeetingTextUpdated,
          action::SessionEnded, action::TranscriptionError, action::CommandDetected, action::CommandResult,
          action::TextInjectionFailed, action::RecordingFailed, action::StartRecording, action::StopRecording,
          action::InterruptRecording, action::CancelRecording, action::ShowCancelledMessage, action::ShowSavedToHistory,
          action::ShowMeetingProcessingHint, action::HideSavedToHistory, action::ConnectionEstablished,
          action::AudioCaptureStarted, action::CommandProcessing, action::TextInjected, action::RecordingCompleted,
          action::Reset, action::SwitchedToOffline, action::ShowHint, action::TargetApplicationCaptured,
          action::MicrophoneAwaited> {
public:
    using variant::variant;
    RecordingAction(const RecordingAction&);
    RecordingAction(RecordingAction&&) noexcept;
    RecordingAction& operator=(const RecordingAction&);
    RecordingAction& operator=(RecordingAction&&) noexcept;
    ~RecordingAction();
};

/// The action's case name, for logs.
[[nodiscard]] QString actionName(const RecordingAction& action);

} // namespace quillo
