#include "Services/SystemAudio/SystemAudioError.h"

namespace quillo {

namespace {

std::string description(SystemAudioError::Code code, AudioStatus status) {
    using Code = SystemAudioError::Code;
    switch (code) {
    case Code::tapCreationFailed:
        return "Failed to create audio tap (OSStatus: " + std::to_string(status) + ")";
    case Code::ioStartFailed:
        return "Failed to start audio I/O (OSStatus: " + std::to_string(status) + ")";
    case Code::alreadyCapturing:
        return "System audio capture is already active";
    case Code::outputDeviceNotFound:
        return "No audio output device found";
    case Code::headphonesRequired:
        return "Headphones are required for meeting mode (speakers may cause echo)";
    case Code::notAvailable:
        break;
    }
    return "System audio capture is not available: no sound server";
}

} // namespace

SystemAudioError::SystemAudioError(Code code, AudioStatus status)
    : std::runtime_error(description(code, status)), m_code(code) {}

} // namespace quillo
