#pragma once

#include "Core/Preferences.h"

#include <QString>

namespace quillo {

/// Moves the preferences of earlier versions to their current places. A flag in the preferences makes each migration
/// run only once. Main thread.
class PreferenceMigrations {
public:
    /// `domainFolder` contains the preferences of the earlier applications, one file "<domain>.ini" each.
    PreferenceMigrations(Preferences& preferences, QString domainFolder);

    /// Copies the preferences of the first earlier domain whose user had finished the onboarding. Keeps values that are
    /// already stored. Call it before anything reads the preferences.
    void copyLegacyDefaults();
    /// The default hotkey was once the Function key; users of that default keep it.
    void keepFunctionKeyOfExistingUser();
    /// The default hotkey was once Shift with the backquote key, and was stored like a choice.
    void dropShiftBackquote();

private:
    [[nodiscard]] bool isDone(const QString& flag) const { return m_preferences.value(flag).toBool(); }
    void remember(const QString& flag) { m_preferences.setValue(flag, true); }

    Preferences& m_preferences;
    QString m_domainFolder;
};

} // namespace quillo
