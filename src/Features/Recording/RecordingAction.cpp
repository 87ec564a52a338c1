#include "Features/Recording/RecordingAction.h"

#include <array>

namespace quillo {

RecordingAction::RecordingAction(const RecordingAction&) = default;
RecordingAction::RecordingAction(RecordingAction&&) noexcept = default;
RecordingAction& RecordingAction::operator=(const RecordingAction&) = default;
RecordingAction& RecordingAction::operator=(RecordingAction&&) noexcept = default;
RecordingAction::~RecordingAction() = default;

QString actionName(const RecordingAction& action) {
    static constexpr std::array names{
        "setHovering",
        "setHandsOff",
        "setMeetingPreConfirmed",
        "connectionFailed",
        "connectionLost",
        "sessionStarted",
        "sessionStartFailed",
        "audioChunkCaptured",
        "audioLevelUpdated",
        "systemAudioLevelUpdated",
        "audioCaptureFailed",
        "partialTranscriptReceived",
        "finalTranscriptReceived",
        "meetingTextUpdated",
        "sessionEnded",
        "transcriptionError",
        "commandDetected",
        "commandResult",
        "textInjectionFailed",
        "recordingFailed",
        "startRecording",
        "stopRecording",
        "interruptRecording",
        "cancelRecording",
        "showCancelledMessage",
        "showSavedToHistory",
        "showMeetingProcessingHint",
        "hideSavedToHistory",
        "connectionEstablished",
        "audioCaptureStarted",
        "commandProcessing",
        "textInjected",
        "recordingCompleted",
        "reset",
        "switchedToOffline",
        "showHint",
        "targetApplicationCaptured",
        "microphoneAwaited",
    };
    static_assert(names.size() == std::variant_size_v<RecordingAction::variant>);
    return QString::fromLatin1(names.at(action.index()));
}

} // namespace quillo
