#pragma once

#include "Services/Auth/AuthServiceProtocol.h"

/// The errors of the account in their words. Those of a sign-in leave the session as it was.
namespace quillo::authFailure {

inline AuthError signIn(const QString& text) { return {AuthError::Kind::signIn, text}; }

inline AuthError timeout() { return signIn(QStringLiteral("Login timed out. Please try again.")); }
inline AuthError missingVerifier() { return signIn(QStringLiteral("Missing code verifier")); }
inline AuthError noCode() { return signIn(QStringLiteral("No authorization code received")); }
inline AuthError stateMismatch() { return signIn(QStringLiteral("Security validation failed")); }
inline AuthError badCallback() { return signIn(QStringLiteral("Invalid callback URL")); }
inline AuthError noCallback() { return signIn(QStringLiteral("No callback received")); }
inline AuthError badAuthorizationURL() { return signIn(QStringLiteral("Invalid authorization URL")); }
inline AuthError browser() { return signIn(QStringLiteral("Failed to open browser")); }
inline AuthError server(const QString& description) {
    return signIn(QStringLiteral("Server returned error: ") + description);
}
inline AuthError linkFailed(const QString& reason) {
    return signIn(QStringLiteral("Failed to link account: ") + reason);
}
inline AuthError alreadyLinked() { return signIn(QStringLiteral("Account is already linked to an email")); }

inline AuthError cancelled() { return {AuthError::Kind::cancelled, QStringLiteral("The sign-in was cancelled")}; }
inline AuthError notAuthenticated() { return {AuthError::Kind::authentication, QStringLiteral("Not authenticated")}; }
inline AuthError decoding(const QString& reason) {
    return {AuthError::Kind::transport, QStringLiteral("Failed to decode response: ") + reason};
}

} // namespace quillo::authFailure
