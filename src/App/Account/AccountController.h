#pragma once

#include "Concurrency/TaskRunner.h"
#include "Features/Application/AccountState.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo {

/// What a person does with the account, from a window or the command line, and how it went. Main thread.
class AccountController {
public:
    /// The references outlive the controller. `changed` is called whenever `state` may be another one; `signedIn` after
    /// each sign-in that succeeded.
    AccountController(AuthServiceProtocol& auth, TaskRunner& tasks, std::function<void()> changed,
                      std::function<void()> signedIn);

    [[nodiscard]] AccountState state() const;

    void signIn() {
        run([](AuthServiceProtocol& auth) { return auth.startLogin(); }, true);
    }
    void registerAccount() {
        run([](AuthServiceProtocol& auth) { return auth.startRegistration(); }, true);
    }
    void cancelSignIn() { m_auth.cancelLogin(); }
    /// Forgets the account on this machine and goes on without one.
    void signOut();
    /// Removes the account from the server, then as `signOut`.
    void deleteAccount() {
        run([](AuthServiceProtocol& auth) { return auth.deleteAccount(); }, false);
    }

private:
    void run(std::function<Task<>(AuthServiceProtocol&)> attempt, bool isSignIn);
    /// So that dictation goes on: the server wants to know whose audio it is.
    void continueAnonymously();

    AuthServiceProtocol& m_auth;
    TaskRunner& m_tasks;
    std::function<void()> m_changed;
    std::function<void()> m_signedIn;
    QString m_failure;
    int m_attempts = 0; ///< under way
    Observation m_observation;
};

} // namespace quillo
