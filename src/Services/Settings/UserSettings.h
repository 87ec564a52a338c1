#pragma once

#include "Core/Preferences.h"
#include "Services/Settings/InjectionMode.h"
#include "Services/Settings/SettingsSchema.h"

#include <QObject>

#include <optional>

namespace quillo {

enum class MeetingModePreference { off, manual, automatic };

/// The user's preferences, typed. Settings of a person are kept under the signed-in user's id, an underscore and the
/// key, and under the bare key while nobody is signed in; settings of the machine are always bare. Main thread.
///
/// A stored value that is none of the setting reads as the default.
class UserSettings final : public QObject {
    Q_OBJECT
public:
    static UserSettings& shared();
    static inline const QString consentVersion = QStringLiteral("1");

    /// `systemLanguage` is a locale name such as "de_DE".
    UserSettings(Preferences& preferences, QString systemLanguage);

    /// Whose settings count from now on; nothing means signed out.
    void setUserId(const std::optional<QString>& userId);
    [[nodiscard]] const std::optional<QString>& userId() const { return m_userId; }

    // By key, over the schema. Each throws SettingsError for a key that is none.
    [[nodiscard]] QVariant value(const QString& key) const;
    /// Invalid removes what is stored. `value` must be one of the setting, as `parseSettingValue` returns it.
    void setValue(const QString& key, const QVariant& value);
    [[nodiscard]] bool isStored(const QString& key) const;

    // Raw look-ups for keys of others.
    [[nodiscard]] bool boolValue(const QString& key, bool defaultValue) const;
    [[nodiscard]] QString stringValue(const QString& key, const QString& defaultValue) const;
    [[nodiscard]] int globalInteger(const QString& key, int defaultValue) const;
    [[nodiscard]] double globalDouble(const QString& key, double defaultValue) const;

    // Languages
    [[nodiscard]] QString primaryLanguage() const;
    [[nodiscard]] QString secondaryLanguage() const;
    /// What the server is sent: the codes without "none"; empty means automatic detection.
    [[nodiscard]] QStringList dictationLanguages() const;
    /// Whether the user has ever picked a dictation language; until then no recording starts.
    [[nodiscard]] bool hasChosenLanguage() const;
    /// Picks the dictation languages; throws SettingsError for an unknown code.
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
    /// Counts a dictation that ended with text, and within a period of 30 days those in a language not configured.
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
    /// The last answer to the meeting prompt; nothing when there was none.
    [[nodiscard]] std::optional<bool> meetingDecision(const QString& appBundleId) const;
    void rememberMeetingDecision(const std::optional<QString>& appBundleId, bool accepted);

    /// The migrations below in their order, then the language defaults; at start and after each sign-in.
    void runMigrations();
    void migrateGlobalSettingsToUserScope();
    void migrateMeetingModeFromLegacy();
    void migrateLanguageExplicitFlagIfNeeded();
    void migrateEnhancedConsentIfNeeded();

Q_SIGNALS:
    /// A setting that counts now has another value. `key` is bare.
    void changed(const QString& key);
    /// Another user's settings count now: everything may have changed.
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
