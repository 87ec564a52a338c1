#pragma once

#include "Architecture/Observation.h"
#include "Concurrency/Task.h"

#include <QString>

#include <functional>
#include <optional>
#include <stdexcept>

namespace quillo {

/// The account of the session. JSON keys: "id", "email", "full_name", "is_anonymous".
struct AuthUser {
    QString id;
    std::optional<QString> email;
    std::optional<QString> fullName;
    bool isAnonymous = true;
    bool operator==(const AuthUser&) const = default;
};

/// Why the account could not be reached or changed. `what()` is for the log; a person reads the text of the code.
class AuthError : public std::runtime_error {
public:
    enum class Kind {
        authentication, ///< the server answered and rejected the token or the request
        transport,      ///< network or server failure; the session is kept
        signIn,         ///< a failed sign-in; the session is kept
        cancelled,      ///< cancelled or replaced by another sign-in: nothing to show
    };
    enum class Code {
        accountRequired, ///< the server serves no anonymous users
        accountUnreadable,
        alreadyLinked,
        anonymousFailed,
        badAuthorizationURL,
        badCallback,
        browser,
        cancelled,
        decoding,
        deletionFailed,
        exchangeFailed,
        linkFailed,
        missingVerifier,
        noCallback,
        noCode,
        notAuthenticated,
        refreshFailed,
        serverRefused,
        stateMismatch,
        timeout,
    };
    /// `detail` is what the server said, for the texts that have room for it.
    AuthError(Kind kind, Code code, const QString& description, QString detail = {})
        : std::runtime_error(description.toStdString()), m_kind(kind), m_code(code), m_detail(std::move(detail)) {}
    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] const QString& detail() const { return m_detail; }
    [[nodiscard]] bool isAuthenticationError() const { return m_kind == Kind::authentication; }
    [[nodiscard]] bool isCancellation() const { return m_kind == Kind::cancelled; }

private:
    Kind m_kind;
    Code m_code;
    QString m_detail;
};

/// Keeps the user's session. Main thread.
class AuthServiceProtocol {
public:
    virtual ~AuthServiceProtocol() = default;

    /// Restores the stored session and refreshes an expired token; true when there is one. Waits for a store that has
    /// not answered yet. Concurrent calls share one attempt.
    virtual Task<bool> checkExistingSession() = 0;
    /// If the stored session has not been restored yet, restores it instead of creating one. Throws AuthError.
    /// Concurrent calls share one request.
    virtual Task<> createAnonymousSession() = 0;
    /// Stores new tokens or throws AuthError. Concurrent calls share one request. Waits like `createAnonymousSession`.
    virtual Task<> refreshAccessToken() = 0;

    /// Opens the server's page in the browser and returns when the user has signed in there, after at most 120 s.
    /// Throws AuthError and keeps the session on failure. A second call cancels the first.
    virtual Task<> startLogin() = 0;
    /// The same with the page that creates an account.
    virtual Task<> startRegistration() = 0;
    /// Cancels the waiting sign-in, if any.
    virtual void cancelLogin() = 0;
    /// Ends the session on this machine; the device id is kept.
    virtual void logout() = 0;
    /// Deletes the account and all its data on the server, then acts like `logout`. On failure throws AuthError and
    /// keeps the session.
    virtual Task<> deleteAccount() = 0;

    [[nodiscard]] virtual bool isAuthenticated() const = 0;
    /// Whether a session is being restored or created, or a sign-in is waiting.
    [[nodiscard]] virtual bool isLoading() const = 0;
    /// Whether the server has ended the session of an account, so that the user has to sign in again. Until then,
    /// dictations wait if the account was in use; if the session was already expired at start, dictation continues
    /// without an account.
    [[nodiscard]] virtual bool isSessionExpired() const { return false; }
    /// Whether the latest sign-in created the account.
    [[nodiscard]] virtual bool isNewUser() const = 0;
    [[nodiscard]] virtual std::optional<AuthUser> currentUser() const = 0;
    /// Calls `changed` after any of these values has changed, as long as the result lives.
    [[nodiscard]] virtual Observation observe(std::function<void()> changed) = 0;
};

} // namespace quillo
