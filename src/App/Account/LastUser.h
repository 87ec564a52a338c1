#pragma once

#include "Core/Preferences.h"
#include "Services/Settings/UserSettings.h"

#include <optional>

namespace quillo {

/// Whose settings are in effect before the keyring and the server have answered. Stored per server. Main thread.
class LastUser {
public:
    /// `server` is ServerEnvironment::identity(). `preferences` must outlive the object.
    LastUser(Preferences& preferences, const QString& server)
        : m_preferences(preferences),
          m_key(server == QStringLiteral("local") ? QStringLiteral("lastUserId")
                                                  : QStringLiteral("lastUserId@") + server) {}

    /// nullopt: the user has signed out.
    void remember(const std::optional<QString>& id) {
        id ? m_preferences.setValue(m_key, *id) : m_preferences.remove(m_key);
    }
    /// Switches to the settings of the account that signed in last and has not signed out.
    void applyTo(UserSettings& settings) const {
        const auto stored = m_preferences.value(m_key).toString();
        settings.setUserId(stored.isEmpty() ? std::nullopt : std::optional(stored));
        settings.runMigrations();
    }

private:
    Preferences& m_preferences;
    QString m_key;
};

} // namespace quillo
