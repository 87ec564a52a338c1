#pragma once

#include "Core/Preferences.h"

#include <QString>

namespace quillo {

/// What earlier versions left in the preferences, brought to where it is read today. Each migration runs once, which a
/// flag in the preferences remembers. Main thread.
class PreferenceMigrations {
public:
    /// `domainFolder` holds the preferences of the earlier applications, a file "<domain>.ini" each.
    PreferenceMigrations(Preferences& preferences, QString domainFolder);

    /// Copies the preferences of the first earlier domain whose user had finished the onboarding. What is stored
    /// already stays. To be run before anything reads the preferences.
    void copyLegacyDefaults();
    /// The default hotkey was once the Function key: who used it, keeps it.
    void keepFunctionKeyOfExistingUser();
    /// The default hotkey was once Shift with the backquote key, stored as if it had been chosen.
    void dropShiftBackquote();

private:
    [[nodiscard]] bool isDone(const QString& flag) const { return m_preferences.value(flag).toBool(); }
    void remember(const QString& flag) { m_preferences.setValue(flag, true); }

    Preferences& m_preferences;
    QString m_domainFolder;
};

} // namespace quillo
