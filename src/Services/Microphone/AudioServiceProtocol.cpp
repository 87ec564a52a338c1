#include "Services/Microphone/AudioServiceProtocol.h"

namespace quillo {

namespace {

const char* description(AudioServiceError::Code code) {
    switch (code) {
    case AudioServiceError::Code::alreadyCapturing:
        return "Audio capture is already in progress";
    case AudioServiceError::Code::invalidFormat:
        return "Failed to create audio format";
    case AudioServiceError::Code::permissionDenied:
        return "Microphone permission denied";
    case AudioServiceError::Code::engineStartFailed:
    case AudioServiceError::Code::deviceSetupFailed:
    case AudioServiceError::Code::noDevice:
    case AudioServiceError::Code::deviceLost:
        break;
    }
    return "Failed to start audio engine";
}

} // namespace

AudioServiceError::AudioServiceError(Code code) : std::runtime_error(description(code)), m_code(code) {}

AudioServiceError::AudioServiceError(Code code, const QString& message, QString detail)
    : std::runtime_error(message.toStdString()), m_code(code), m_detail(std::move(detail)) {}

} // namespace quillo
