#include "Services/Settings/UserSettings.h"

#include "Core/Log.h"
#include "Core/SupportedLanguages.h"

#include <QDateTime>
#include <QLocale>

namespace quillo {
namespace {

const QString languageChosenKey = QStringLiteral("languageChosen");
const QString noLanguage = QStringLiteral("none");

void log(const QString& message) { appLog(message, LogLevel::info, QStringLiteral("UserSettings")); }

} // namespace

UserSettings& UserSettings::shared() {
    static auto* const settings = new UserSettings(Preferences::shared(), QLocale::system().name());
    return *settings;
}

UserSettings::UserSettings(Preferences& preferences, QString systemLanguage)
    : m_preferences(preferences), m_systemLanguage(std::move(systemLanguage)) {
    connect(&preferences, &Preferences::changed, this, &UserSettings::announce);
}

void UserSettings::setUserId(const std::optional<QString>& userId) {
    const auto id = userId && !userId->isEmpty() ? userId : std::nullopt;
    if (id == m_userId)
        return;
    m_userId = id;
    Q_EMIT userChanged();
}

QString UserSettings::scopedKey(const QString& key) const { return m_userId ? *m_userId + u'_' + key : key; }

QString UserSettings::storageKey(const Setting& setting) const {
    return setting.scope == Setting::Scope::global ? setting.key : scopedKey(setting.key);
}

void UserSettings::announce(const QString& storedKey) {
    const QString prefix = scopedKey(QString());
    const QString key = storedKey.startsWith(prefix) ? storedKey.mid(prefix.size()) : storedKey;
    const auto* setting = findSetting(key);
    if (setting && storageKey(*setting) == storedKey)
        Q_EMIT changed(key);
}

QVariant UserSettings::value(const QString& key) const {
    const auto& setting = settingForKey(key);
    const QVariant stored = storedSettingValue(setting, m_preferences.value(storageKey(setting)));
    return stored.isValid() ? stored : setting.defaultValue;
}

void UserSettings::setValue(const QString& key, const QVariant& value) {
    const auto& setting = settingForKey(key);
    if (!value.isValid()) {
        m_preferences.remove(storageKey(setting));
        return;
    }
    // Store the printed form, so that a user can read and edit the file.
    const QString stored = settingForStorage(setting, value);
    parseSettingValue(setting, stored);
    // Setting a language, by any means, counts as choosing one.
    if (key == QLatin1String("primaryLanguage"))
        m_preferences.setValue(scopedKey(languageChosenKey), true);
    // Whoever switches it on consents by that.
    if (key == QLatin1String("enhancedTranscriptionEnabled") && value.toBool() &&
        !(enhancedTranscriptionEnabled() && hasValidEnhancedConsent()))
        recordEnhancedConsent();
    m_preferences.setValue(storageKey(setting), stored);
}

bool UserSettings::isStored(const QString& key) const { return m_preferences.contains(storageKey(settingForKey(key))); }

bool UserSettings::boolValue(const QString& key, bool defaultValue) const {
    const QString stored = scopedKey(key);
    return m_preferences.contains(stored) ? m_preferences.value(stored).toBool() : defaultValue;
}

QString UserSettings::stringValue(const QString& key, const QString& defaultValue) const {
    const QString stored = scopedKey(key);
    return m_preferences.contains(stored) ? m_preferences.value(stored).toString() : defaultValue;
}

int UserSettings::globalInteger(const QString& key, int defaultValue) const {
    bool ok = false;
    const int stored = m_preferences.value(key).toInt(&ok);
    return ok ? stored : defaultValue;
}

double UserSettings::globalDouble(const QString& key, double defaultValue) const {
    bool ok = false;
    const double stored = m_preferences.value(key).toDouble(&ok);
    return ok ? stored : defaultValue;
}

std::optional<QString> UserSettings::text(const char* key) const {
    const QVariant stored = value(QString::fromLatin1(key));
    return stored.isValid() ? std::optional(stored.toString()) : std::nullopt;
}

std::optional<double> UserSettings::position(const char* key) const {
    const QVariant stored = value(QString::fromLatin1(key));
    return stored.isValid() ? std::optional(stored.toDouble()) : std::nullopt;
}

QString UserSettings::primaryLanguage() const { return text("primaryLanguage").value_or(detectSystemLanguage()); }

QString UserSettings::secondaryLanguage() const { return text("secondaryLanguage").value_or(noLanguage); }

QStringList UserSettings::dictationLanguages() const {
    const QString primary = primaryLanguage();
    const QString secondary = secondaryLanguage();
    if (primary == SupportedLanguages::automatic)
        return {};
    if (secondary == noLanguage || secondary == primary)
        return {primary};
    return {primary, secondary};
}

bool UserSettings::hasChosenLanguage() const { return value(languageChosenKey).toBool(); }

void UserSettings::chooseLanguages(const QString& primary, const QString& secondary) {
    parseSettingValue(settingForKey(QStringLiteral("primaryLanguage")), primary);
    setValue(QStringLiteral("secondaryLanguage"), secondary);
    setValue(QStringLiteral("primaryLanguage"), primary);
}

QString UserSettings::detectSystemLanguage() const {
    return SupportedLanguages::codeForLocale(m_systemLanguage).value_or(SupportedLanguages::automatic);
}

void UserSettings::ensureLanguageDefaults() {
    // Do not use setValue: a default does not count as a choice.
    if (!isStored(QStringLiteral("primaryLanguage")))
        m_preferences.setValue(scopedKey(QStringLiteral("primaryLanguage")), detectSystemLanguage());
    if (!isStored(QStringLiteral("secondaryLanguage")))
        m_preferences.setValue(scopedKey(QStringLiteral("secondaryLanguage")), noLanguage);
}

InjectionMode UserSettings::insertionMode() const {
    return text("insertionMode") == QStringLiteral("type") ? InjectionMode::type : InjectionMode::paste;
}

void UserSettings::setSelectedMicrophoneId(const std::optional<QString>& deviceId) {
    setValue(QStringLiteral("selectedMicrophoneId"), deviceId ? QVariant(*deviceId) : QVariant());
}

void UserSettings::setPillPosition(double x, double y) {
    setValue(QStringLiteral("pillPositionX"), x);
    setValue(QStringLiteral("pillPositionY"), y);
}

void UserSettings::recordConsent(const QString& prefix) {
    setValue(prefix + QStringLiteral("ConsentTimestamp"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    setValue(prefix + QStringLiteral("ConsentVersion"), consentVersion);
}

void UserSettings::countRecording(bool languageMismatch) {
    const auto count = [this](const QString& key, int from) {
        setValue(key, from == std::numeric_limits<int>::max() ? from : from + 1);
    };
    count(QStringLiteral("totalRecordingsCount"), totalRecordingsCount());
    if (!languageMismatch)
        return;
    constexpr qint64 periodInDays = 30;
    const auto now = QDateTime::currentDateTimeUtc();
    const auto startKey = QStringLiteral("mismatchPeriodStartDate");
    const auto countKey = QStringLiteral("mismatchCountInPeriod");
    const auto start = QDateTime::fromString(value(startKey).toString(), Qt::ISODate);
    // If the clock was set back, start a new period too.
    const bool inPeriod = start.isValid() && start <= now && start.daysTo(now) < periodInDays;
    if (!inPeriod)
        setValue(startKey, now.toString(Qt::ISODate));
    count(countKey, inPeriod ? value(countKey).toInt() : 0);
}

MeetingModePreference UserSettings::meetingModePreference() const {
    const auto word = text("meetingModePreference");
    if (word == QStringLiteral("off"))
        return MeetingModePreference::off;
    return word == QStringLiteral("auto") ? MeetingModePreference::automatic : MeetingModePreference::manual;
}

void UserSettings::rememberMeetingDecision(const std::optional<QString>& appBundleId, bool accepted) {
    if (!appBundleId || appBundleId->isEmpty())
        return;
    auto decisions = value(QStringLiteral("meetingDetectionHistory")).toMap();
    decisions.insert(*appBundleId, accepted);
    setValue(QStringLiteral("meetingDetectionHistory"), decisions);
}

void UserSettings::runMigrations() {
    migrateGlobalSettingsToUserScope();
    migrateMeetingModeFromLegacy();
    migrateLanguageExplicitFlagIfNeeded();
    migrateEnhancedConsentIfNeeded();
    ensureLanguageDefaults();
}

void UserSettings::migrateGlobalSettingsToUserScope() {
    // Only the first account that signs in inherits the settings made without one; a second user starts with the
    // defaults.
    const QString done = QStringLiteral("migration.userScope.v1");
    if (!m_userId || m_preferences.contains(done))
        return;
    m_preferences.setValue(done, true);
    QStringList keys{QStringLiteral("meetingModeEnabled")};
    for (const auto& setting : settingsSchema())
        if (setting.scope == Setting::Scope::user)
            keys << setting.key;
    int copied = 0;
    for (const auto& key : keys) {
        if (!m_preferences.contains(key) || m_preferences.contains(scopedKey(key)))
            continue;
        m_preferences.setValue(scopedKey(key), m_preferences.value(key));
        ++copied;
    }
    log(QStringLiteral("[UserSettings] Migrated %1 settings to user scope").arg(copied));
}

void UserSettings::migrateMeetingModeFromLegacy() {
    const QString preference = QStringLiteral("meetingModePreference");
    const QString legacy = QStringLiteral("meetingModeEnabled");
    if (isStored(preference) || !m_preferences.contains(scopedKey(legacy)))
        return;
    setValue(preference, boolValue(legacy, false) ? QStringLiteral("auto") : QStringLiteral("off"));
    log(QStringLiteral("[UserSettings] Meeting mode migrated: ") + value(preference).toString());
}

void UserSettings::migrateLanguageExplicitFlagIfNeeded() {
    const QString done = QStringLiteral("migration.langExplicit.v1");
    if (flag("migration.langExplicit.v1"))
        return;
    if (onboardingCompleted() && isStored(QStringLiteral("primaryLanguage"))) {
        m_preferences.setValue(scopedKey(languageChosenKey), true);
        log(QStringLiteral("[UserSettings] langExplicit migration: existing install → languages kept"));
    } else if (!hasChosenLanguage()) {
        log(QStringLiteral("[UserSettings] langExplicit migration: fresh install → gate remains active"));
    }
    m_preferences.setValue(scopedKey(done), true);
}

void UserSettings::migrateEnhancedConsentIfNeeded() {
    // Once: what is switched on from now on records its consent then.
    const QString done = scopedKey(QStringLiteral("migration.enhancedConsent.v1"));
    if (m_preferences.contains(done))
        return;
    m_preferences.setValue(done, true);
    if (!enhancedTranscriptionEnabled() || isStored(QStringLiteral("enhancedConsentVersion")))
        return;
    recordEnhancedConsent();
    log(QStringLiteral("[UserSettings] Enhanced transcription was on before consent was recorded: consent recorded"));
}

} // namespace quillo
