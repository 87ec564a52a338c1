#pragma once

#include "Concurrency/Task.h"

#include <QString>

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

class AuthError : public std::runtime_error {
public:
    enum class Kind {
        authentication, ///< the server answered and rejected the token or the request
        transport,      ///< network or server failure; the session is kept
    };
    AuthError(Kind kind, const QString& message) : std::runtime_error(message.toStdString()), m_kind(kind) {}
    [[nodiscard]] bool isAuthenticationError() const { return m_kind == Kind::authentication; }

private:
    Kind m_kind;
};

/// Keeps the user's session. Main thread.
class AuthServiceProtocol {
public:
    virtual ~AuthServiceProtocol() = default;

    /// Restores the stored session, refreshing an expired token; true when there is one.
    virtual Task<bool> checkExistingSession() = 0;
    /// Throws AuthError.
    virtual Task<> createAnonymousSession() = 0;
    /// Stores new tokens or throws AuthError. Concurrent calls share one request.
    virtual Task<> refreshAccessToken() = 0;
    virtual void logout() = 0;
    [[nodiscard]] virtual bool isAuthenticated() const = 0;
    [[nodiscard]] virtual std::optional<AuthUser> currentUser() const = 0;
};

} // namespace quillo
