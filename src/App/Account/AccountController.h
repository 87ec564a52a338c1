#pragma once

#include "Concurrency/TaskRunner.h"
#include "Features/Application/AccountState.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo {

/// The user's account operations, from a window or the command line, and their results. Main thread.
class AccountController {
public:
    /// The references must outlive the controller. `changed` is called whenever `state` may have changed, `signedIn`
    /// after each successful sign-in.
    AccountController(AuthServiceProtocol& auth, TaskRunner& tasks, std::function<void()> changed,
                      std::function<void()> signedIn, std::function<void()> signedOut);

    [[nodiscard]] AccountState state() const;

    void signIn() {
        run([](AuthServiceProtocol& auth) { return auth.startLogin(); }, true);
    }
    void registerAccount() {
        run([](AuthServiceProtocol& auth) { return auth.startRegistration(); }, true);
    }
    void cancelSignIn() { m_auth.cancelLogin(); }
    /// Signs out on this machine and continues without an account.
    void signOut();
    /// Deletes the account on the server, then acts like `signOut`.
    void deleteAccount() {
        run([](AuthServiceProtocol& auth) { return auth.deleteAccount(); }, false);
    }

private:
    void run(std::function<Task<>(AuthServiceProtocol&)> attempt, bool isSignIn);
    /// Creates an anonymous session, because the server needs a user for dictation.
    void continueAnonymously();

    AuthServiceProtocol& m_auth;
    TaskRunner& m_tasks;
    std::function<void()> m_changed;
    std::function<void()> m_signedIn;
    std::function<void()> m_signedOut;
    UserMessage m_failure;
    int m_attempts = 0; ///< running attempts
    Observation m_observation;
};

} // namespace quillo
