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
        signIn,         ///< a sign-in that came to nothing; the session is kept
        cancelled,      ///< given up or overtaken by another sign-in: nothing to show
    };
    enum class Code {
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

    /// Restores the stored session, refreshing an expired token; true when there is one. Waits for a store that has yet
    /// to answer. Concurrent calls share one look.
    virtual Task<bool> checkExistingSession() = 0;
    /// Restores the stored session first when nothing has looked for it yet, and then makes none beside it. Throws
    /// AuthError. Concurrent calls share one request.
    virtual Task<> createAnonymousSession() = 0;
    /// Stores new tokens or throws AuthError. Concurrent calls share one request. Waits as `createAnonymousSession`.
    virtual Task<> refreshAccessToken() = 0;

    /// Opens the server's page in the browser and ends when the user has signed in there, at most 120 s later. Throws
    /// AuthError, with the session as it was before. A second call takes over: the first ends as cancelled.
    virtual Task<> startLogin() = 0;
    /// The same on the page that makes an account.
    virtual Task<> startRegistration() = 0;
    /// Ends the sign-in that waits, if any, as cancelled.
    virtual void cancelLogin() = 0;
    /// Ends the session on this machine; the device's id stays.
    virtual void logout() = 0;
    /// Removes the account and all that the server keeps of it, then as `logout`. Throws AuthError and keeps the
    /// session when the server did not.
    virtual Task<> deleteAccount() = 0;

    [[nodiscard]] virtual bool isAuthenticated() const = 0;
    /// A session is being restored or made, or a sign-in waits.
    [[nodiscard]] virtual bool isLoading() const = 0;
    /// The server has ended the session of an account: it is to be signed in to again. Until then dictations of an
    /// account that was in use wait, and one that was found so at start goes on without an account.
    [[nodiscard]] virtual bool isSessionExpired() const { return false; }
    /// The account was made by the latest sign-in.
    [[nodiscard]] virtual bool isNewUser() const = 0;
    [[nodiscard]] virtual std::optional<AuthUser> currentUser() const = 0;
    /// `changed` is called after any of these became another one, for as long as the result lives.
    [[nodiscard]] virtual Observation observe(std::function<void()> changed) = 0;
};

} // namespace quillo
