#pragma once

#include "Core/Preferences.h"
#include "Services/Settings/InjectionMode.h"
#include "Services/Settings/SettingsSchema.h"

#include <QObject>

#include <optional>

namespace quillo {

enum class MeetingModePreference { off, manual, automatic };

/// Typed access to the preferences. Settings of a user are stored under the user's id, an underscore and the key, or
/// under the bare key when no user is signed in; settings of the machine always use the bare key. Main thread.
///
/// A stored value that is invalid for the setting reads as the default.
class UserSettings final : public QObject {
    Q_OBJECT
public:
    static UserSettings& shared();
    static inline const QString consentVersion = QStringLiteral("1");

    /// `systemLanguage` is a locale name such as "de_DE".
    UserSettings(Preferences& preferences, QString systemLanguage);

    /// Selects the user whose settings apply; nothing means signed out.
    void setUserId(const std::optional<QString>& userId);
    [[nodiscard]] const std::optional<QString>& userId() const { return m_userId; }

    // Access by key, checked against the schema. Each function throws SettingsError for an unknown key.
    [[nodiscard]] QVariant value(const QString& key) const;
    /// An invalid `value` removes the stored one. Otherwise it must be valid for the setting, as returned by
    /// `parseSettingValue`.
    void setValue(const QString& key, const QVariant& value);
    [[nodiscard]] bool isStored(const QString& key) const;

    // Raw access to keys owned by other components.
    [[nodiscard]] bool boolValue(const QString& key, bool defaultValue) const;
    [[nodiscard]] QString stringValue(const QString& key, const QString& defaultValue) const;
    [[nodiscard]] int globalInteger(const QString& key, int defaultValue) const;
    [[nodiscard]] double globalDouble(const QString& key, double defaultValue) const;

    // Languages
    [[nodiscard]] QString primaryLanguage() const;
    [[nodiscard]] QString secondaryLanguage() const;
    /// The codes for the server, without "none"; empty means automatic detection.
    [[nodiscard]] QStringList dictationLanguages() const;
    /// Whether the user has ever chosen a dictation language; until then no recording starts.
    [[nodiscard]] bool hasChosenLanguage() const;
    /// Stores the dictation languages; throws SettingsError for an unknown code.
    void chooseLanguages(const QString& primary, const QString& secondary = QStringLiteral("none"));
    [[nodiscard]] QString detectSystemLanguage() const;
    void ensureLanguageDefaults();

    // Delivery, recording and interface
    [[nodiscard]] InjectionMode insertionMode() const;
    [[nodiscard]] bool restoreClipboard() const { return flag("restoreClipboard"); }
    [[nodiscard]] std::optional<QString> selectedMicrophoneId() const { return text("selectedMicrophoneId"); }
    void setSelectedMicrophoneId(const std::optional<QString>& deviceId);
    [[nodiscard]] bool playSound() const { return flag("playSound"); }
    [[nodiscard]] bool cancelRecordingOnEscape() const { return flag("cancelRecordingOnEscape"); }
    [[nodiscard]] bool useDemoMode() const { return flag("useDemoMode"); }
    [[nodiscard]] bool smartModeEnabled() const { return flag("smartModeEnabled"); }
    [[nodiscard]] bool launchAtLogin() const { return flag("launchAtLogin"); }
    [[nodiscard]] bool onboardingCompleted() const { return flag("onboardingCompleted"); }
    [[nodiscard]] bool showFloatingPill() const { return flag("showFloatingPill"); }
    [[nodiscard]] std::optional<double> pillPositionX() const { return position("pillPositionX"); }
    [[nodiscard]] std::optional<double> pillPositionY() const { return position("pillPositionY"); }
    void setPillPosition(double x, double y);
    /// Whether the audio of a finished dictation is kept.
    [[nodiscard]] bool keepAudio() const { return flag("keepAudio"); }
    [[nodiscard]] int totalRecordingsCount() const { return value(QStringLiteral("totalRecordingsCount")).toInt(); }
    /// Counts a dictation that ended with text, and within periods of 30 days those in a language that is not
    /// configured.
    void countRecording(bool languageMismatch);
    [[nodiscard]] int audioStorageLimitMB() const { return value(QStringLiteral("audioStorageLimitMB")).toInt(); }

    // Consent
    [[nodiscard]] bool enhancedTranscriptionEnabled() const { return flag("enhancedTranscriptionEnabled"); }
    [[nodiscard]] std::optional<QString> enhancedConsentTimestamp() const { return text("enhancedConsentTimestamp"); }
    [[nodiscard]] bool hasValidEnhancedConsent() const { return text("enhancedConsentVersion") == consentVersion; }
    [[nodiscard]] bool hasValidSyncConsent() const { return text("syncConsentVersion") == consentVersion; }
    void recordEnhancedConsent() { recordConsent(QStringLiteral("enhanced")); }
    void recordSyncConsent() { recordConsent(QStringLiteral("sync")); }

    // Meetings
    [[nodiscard]] MeetingModePreference meetingModePreference() const;
    /// Stores the answer to the meeting prompt under "meetingDetectionHistory".
    void rememberMeetingDecision(const std::optional<QString>& appBundleId, bool accepted);

    /// Runs the migrations below in order, then sets the language defaults; call it at start and after each sign-in.
    void runMigrations();
    void migrateGlobalSettingsToUserScope();
    void migrateMeetingModeFromLegacy();
    void migrateLanguageExplicitFlagIfNeeded();
    void migrateEnhancedConsentIfNeeded();

Q_SIGNALS:
    /// Emitted when the effective value of a setting has changed. `key` is the bare key.
    void changed(const QString& key);
    /// Emitted when another user's settings apply: everything may have changed.
    void userChanged();

private:
    [[nodiscard]] QString scopedKey(const QString& key) const;
    [[nodiscard]] QString storageKey(const Setting& setting) const;
    [[nodiscard]] bool flag(const char* key) const { return value(QString::fromLatin1(key)).toBool(); }
    [[nodiscard]] std::optional<QString> text(const char* key) const;
    [[nodiscard]] std::optional<double> position(const char* key) const;
    void recordConsent(const QString& prefix);
    void announce(const QString& storedKey);

    Preferences& m_preferences;
    QString m_systemLanguage;
    std::optional<QString> m_userId;
};

} // namespace quillo
