#include "Features/Recording/RecordingAction.h"

#include <array>

namespace quillo {

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
    };
    static_assert(names.size() == std::variant_size_v<RecordingAction>);
    return QString::fromLatin1(names.at(action.index()));
}

} // namespace quillo
