#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>

namespace quillo {

/// The stored fields of a user's settings, in the order of the columns. `UserSettings` has the live settings; this copy
/// belongs to the store's schema.
struct AppSettingsFields {
    QString userId;
    QStringList selectedLanguages{QStringLiteral("en")};
    bool autoDetectLanguage = false;
    uint16_t pushToTalkKeyCode = 54; ///< virtual key code: right command
    uint64_t pushToTalkModifiers = 0;
    QString pushToTalkDisplayString;
    std::optional<QString> selectedMicrophoneId;
    QString insertionMode = QStringLiteral("paste");
    bool showOverlay = true;
    bool playSounds = true;
    bool launchAtLogin = false;
    bool privacyMode = false;
    std::optional<QString> profession;
    std::optional<QString> source;
    QStringList useCases;
    bool onboardingCompleted = false;
    bool operator==(const AppSettingsFields&) const = default;
};

/// One user's settings in the store. Main thread.
class AppSettings final : public AppSettingsFields {
public:
    AppSettings() = default;
    explicit AppSettings(const AppSettingsFields& fields) : AppSettingsFields(fields) {}
    AppSettings(const AppSettings&) = delete;
    AppSettings& operator=(const AppSettings&) = delete;
};

using AppSettingsPointer = std::shared_ptr<AppSettings>;

} // namespace quillo
