#pragma once

#include "App/Account/AccountController.h"
#include "App/Account/SessionCheck.h"
#include "Services/Auth/KeychainTokenStorage.h"
#include "Services/Settings/UserSettings.h"

#include <QMetaObject>

#include <functional>

namespace quillo {

/// Whose session it is, from the check at start to signing in and out, and what the rest of the application must do
/// when that changes. Main thread.
class AccountSession {
public:
    struct Hooks {
        std::function<void()> accountDidChange; ///< `AccountController::state` may be another one
        std::function<void()> showWelcome;
        /// The check at start is over: somebody can be dictated for, unless there is no server.
        std::function<void()> sessionDidSettle;
        /// The next recording must use another token.
        std::function<void()> dropConnection;
    };

    /// The references outlive the session. `keychain` is null where the tokens are in no keychain.
    AccountSession(AuthServiceProtocol& auth, KeychainTokenStorage* keychain, UserSettings& settings, Clock& clock,
                   TaskRunner& tasks, Hooks hooks);
    ~AccountSession();
    AccountSession(const AccountSession&) = delete;
    AccountSession& operator=(const AccountSession&) = delete;

    [[nodiscard]] AccountController& controller() { return m_controller; }
    [[nodiscard]] SessionCheck& sessionCheck() { return m_check; }
    /// The welcome was gone through, or is not needed: it is not shown by itself any more.
    void finishOnboarding();

private:
    void sessionDidSettle(SessionCheck::Outcome outcome);
    void userDidSignIn();
    void userDidChange();
    void restoreUnlockedSession();

    AuthServiceProtocol& m_auth;
    KeychainTokenStorage* m_keychain;
    UserSettings& m_settings;
    TaskRunner& m_tasks;
    Hooks m_hooks;
    AccountController m_controller;
    SessionCheck m_check;
    QMetaObject::Connection m_notifications;
};

} // namespace quillo
