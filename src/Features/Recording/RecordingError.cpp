#include "Features/Recording/RecordingError.h"

#include "Core/Overloaded.h"
#include "Localization/LocalizationManager.h"

namespace quillo {

QString RecordingError::messageKey() const {
    return std::visit(
        Overloaded{
            [](const ConnectionFailed&) { return QStringLiteral("error.connectionFailed"); },
            [](const ConnectionLost& lost) {
                return lost.recoveredText.isEmpty() ? QStringLiteral("error.connectionLostNoText")
                                                    : QStringLiteral("error.connectionLostRecovered");
            },
            [](const AudioCaptureFailed&) { return QStringLiteral("error.audioCaptureFailed"); },
            [](const TranscriptionFailed&) { return QStringLiteral("error.transcriptionFailed"); },
            [](const Unknown&) { return QString(); },
            [](const MicrophonePermissionDenied&) { return QStringLiteral("error.micPermissionDenied"); },
            [](const AccessibilityPermissionDenied&) { return QStringLiteral("error.accessibilityDenied"); },
            [](const SessionStartFailed&) { return QStringLiteral("error.sessionStartFailed"); },
            [](const Cancelled&) { return QStringLiteral("error.cancelled"); },
        },
        m_kind);
}

UserMessage RecordingError::userMessage() const {
    return std::visit(
        Overloaded{
            [this](const ConnectionFailed& error) {
                return UserMessage{error.needsSignIn ? QStringLiteral("error.signInNeeded") : messageKey()};
            },
            [this](const AudioCaptureFailed& error) {
                return error.silentDevice.isEmpty()
                           ? UserMessage{messageKey()}
                           : UserMessage{QStringLiteral("error.microphoneSilent"), {error.silentDevice}};
            },
            [this](const TranscriptionFailed& error) {
                if (error.code == QStringLiteral("STT_UNAVAILABLE"))
                    return UserMessage{QStringLiteral("error.recogniserUnavailable")};
                if (error.code == QStringLiteral("LANGUAGE_NOT_SERVED"))
                    return UserMessage{QStringLiteral("error.languageNotServed")};
                return UserMessage{messageKey()};
            },
            [](const Unknown& error) {
                return error.words.isEmpty() ? UserMessage{QStringLiteral("error.unexpected")} : error.words;
            },
            [this](const auto&) { return UserMessage{messageKey()}; },
        },
        m_kind);
}

QString RecordingError::errorDescription() const { return LocalizationManager::shared().t(userMessage()); }

QString RecordingError::detail() const {
    return std::visit(Overloaded{
                          [](const ConnectionFailed& error) { return error.reason; },
                          [](const AudioCaptureFailed& error) { return error.reason; },
                          [](const TranscriptionFailed& error) { return error.message; },
                          [](const Unknown& error) { return error.message; },
                          [](const auto&) { return QString(); },
                      },
                      m_kind);
}

} // namespace quillo
