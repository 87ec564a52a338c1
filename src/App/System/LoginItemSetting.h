#pragma once

#include "Services/Desktop/LaunchAtLogin.h"
#include "Services/Settings/UserSettings.h"

#include <QObject>

namespace quillo {

/// Keeps the desktop's login item and the setting "launchAtLogin" in sync. Main thread.
class LoginItemSetting {
public:
    /// Both must outlive this object.
    LoginItemSetting(LoginItem& item, UserSettings& settings);

private:
    /// Compares the setting with the desktop, because another user's setting may now be in effect.
    void reconcile();
    void settingDidChange();

    UserSettings& m_settings;
    LaunchAtLogin m_launchAtLogin;
    bool m_isEnabled = false; ///< the last known state of the login item
    QObject m_context;        ///< ends the connection to the settings
};

} // namespace quillo
