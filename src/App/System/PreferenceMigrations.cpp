#include "App/System/PreferenceMigrations.h"

#include "Core/Log.h"
#include "Platform/KeyEvents.h"

#include <QFileInfo>
#include <QSettings>
#include <QStringBuilder>

namespace quillo {

namespace {

const QString legacyDefaultsFlag = QStringLiteral("legacyDefaultsMigrated_v1");
const QString functionKeyFlag = QStringLiteral("hotkeyMigratedFnToRightCmd_v2");
const QString hotkeyDefaultsFlag = QStringLiteral("hotkeyDefaultsMigratedToCtrlShiftD_v1");

const QStringList legacyDomains{QStringLiteral("com.nordvik.quillo-macos"), QStringLiteral("com.nordvik.quillo-speech"),
                                QStringLiteral("com.nordvik.Quillo")};
const QString legacyOnboarding = QStringLiteral("hasCompletedOnboarding");
const QString onboardingCompleted = QStringLiteral("onboardingCompleted");
const QString hotkeyKeyCode = QStringLiteral("hotkeyKeyCode");
const QString hotkeyModifiers = QStringLiteral("hotkeyModifiers");

void log(const QString& message) { appLog(message, LogLevel::info, QStringLiteral("App")); }

} // namespace

PreferenceMigrations::PreferenceMigrations(Preferences& preferences, QString domainFolder)
    : m_preferences(preferences), m_domainFolder(std::move(domainFolder)) {}

void PreferenceMigrations::copyLegacyDefaults() {
    if (isDone(legacyDefaultsFlag))
        return;
    bool found = false;
    for (const auto& domain : legacyDomains) {
        const QString path = m_domainFolder % u'/' % domain % QStringLiteral(".ini");
        if (!QFileInfo::exists(path))
            continue;
        const QSettings legacy(path, QSettings::IniFormat);
        if (legacy.status() != QSettings::NoError || !legacy.contains(legacyOnboarding))
            continue;
        log(QStringLiteral("[QuilloApp] Migrating UserDefaults from legacy domain: ") % domain);
        int copied = 0;
        const auto copy = [&](const QString& key, const QVariant& value) {
            if (m_preferences.contains(key))
                return;
            m_preferences.setValue(key, value);
            ++copied;
        };
        for (const auto& key : legacy.allKeys())
            copy(key, legacy.value(key));
        copy(onboardingCompleted, legacy.value(legacyOnboarding));
        log(QStringLiteral("[QuilloApp]   migrated %1 preferences").arg(copied));
        found = true;
        break;
    }
    if (!found)
        log(QStringLiteral("[QuilloApp] No legacy domain with onboardingCompleted found — fresh install"));
    remember(legacyDefaultsFlag);
}

void PreferenceMigrations::keepFunctionKeyOfExistingUser() {
    if (isDone(functionKeyFlag))
        return;
    if (m_preferences.contains(hotkeyKeyCode)) {
        log(QStringLiteral("[AppDelegate] fn→Right⌘ migration: explicit hotkey stored, keeping as-is"));
    } else if (m_preferences.value(onboardingCompleted).toBool()) {
        m_preferences.setValue(hotkeyKeyCode, keycode::function);
        m_preferences.setValue(hotkeyModifiers, 0);
        log(QStringLiteral("[AppDelegate] ✅ fn→Right⌘ migration: preserved fn for existing user"));
    } else {
        log(QStringLiteral("[AppDelegate] fn→Right⌘ migration: fresh install, will use Right ⌘"));
    }
    remember(functionKeyFlag);
}

void PreferenceMigrations::dropShiftBackquote() {
    if (isDone(hotkeyDefaultsFlag))
        return;
    constexpr int backquote = 50;
    const bool isOldDefault = m_preferences.value(hotkeyKeyCode).toInt() == backquote &&
                              m_preferences.value(hotkeyModifiers).toULongLong() == keyflag::shift;
    if (!m_preferences.contains(hotkeyKeyCode)) {
        log(QStringLiteral("[AppDelegate] Hotkey migration: fresh install, using defaults (Right ⌘ / ⌥+Space)"));
    } else if (isOldDefault) {
        m_preferences.remove(hotkeyKeyCode);
        m_preferences.remove(hotkeyModifiers);
        log(QStringLiteral("[AppDelegate] Hotkey migration: the old Shift+` hotkey gives way to Right ⌘"));
    } else {
        log(QStringLiteral("[AppDelegate] Hotkey migration: custom hotkey detected, keeping as-is"));
    }
    remember(hotkeyDefaultsFlag);
}

} // namespace quillo
