#pragma once

#include "App/Account/AccountController.h"
#include "App/Account/LastUser.h"
#include "App/Account/SessionCheck.h"
#include "Services/Auth/KeychainTokenStorage.h"
#include "Services/Settings/UserSettings.h"

#include <QMetaObject>

#include <functional>

namespace quillo {

/// The user's session from the check at start to signing in and out, and the reactions of the application to its
/// changes. Main thread.
class AccountSession {
public:
    struct Hooks {
        std::function<void()> accountDidChange; ///< `AccountController::state` may have changed
        std::function<void()> showWelcome;
        /// The check at start is done: dictation is possible, unless there is no server.
        std::function<void()> sessionDidSettle;
        /// The next recording must use a new token.
        std::function<void()> dropConnection;
    };

    /// The references must outlive the session. `keychain` is null when the tokens are not in a keychain.
    AccountSession(AuthServiceProtocol& auth, KeychainTokenStorage* keychain, UserSettings& settings,
                   LastUser& lastUser, Clock& clock, TaskRunner& tasks, Hooks hooks);
    ~AccountSession();
    AccountSession(const AccountSession&) = delete;
    AccountSession& operator=(const AccountSession&) = delete;

    [[nodiscard]] AccountController& controller() { return m_controller; }
    [[nodiscard]] SessionCheck& sessionCheck() { return m_check; }
    /// The welcome is completed or not needed, so it is no longer shown automatically.
    void finishOnboarding();

private:
    void sessionDidSettle(SessionCheck::Outcome outcome);
    void userDidSignIn();
    void userDidChange();
    void userDidSignOut();
    /// Switches to the settings of the signed-in account. Without one, those of the last account stay in effect: its
    /// keyring may be locked, or the server may have ended its session.
    void applyUser();
    void restoreUnlockedSession();
    void sayIfExpired();

    AuthServiceProtocol& m_auth;
    KeychainTokenStorage* m_keychain;
    UserSettings& m_settings;
    LastUser& m_lastUser;
    TaskRunner& m_tasks;
    Hooks m_hooks;
    AccountController m_controller;
    SessionCheck m_check;
    QMetaObject::Connection m_notifications;
};

} // namespace quillo
