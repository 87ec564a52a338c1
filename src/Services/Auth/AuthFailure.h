#pragma once

#include "Services/Auth/AuthServiceProtocol.h"

/// The errors of the account, with their descriptions for the log. Those of a sign-in leave the session as it was.
namespace quillo::authFailure {

using Code = AuthError::Code;

inline AuthError signIn(Code code, const QString& description, const QString& detail = {}) {
    return {AuthError::Kind::signIn, code, description + detail, detail};
}

inline AuthError timeout() { return signIn(Code::timeout, QStringLiteral("Login timed out. Please try again.")); }
inline AuthError missingVerifier() { return signIn(Code::missingVerifier, QStringLiteral("Missing code verifier")); }
inline AuthError noCode() { return signIn(Code::noCode, QStringLiteral("No authorization code received")); }
inline AuthError stateMismatch() { return signIn(Code::stateMismatch, QStringLiteral("Security validation failed")); }
inline AuthError badCallback() { return signIn(Code::badCallback, QStringLiteral("Invalid callback URL")); }
inline AuthError noCallback() { return signIn(Code::noCallback, QStringLiteral("No callback received")); }
inline AuthError badAuthorizationURL() {
    return signIn(Code::badAuthorizationURL, QStringLiteral("Invalid authorization URL"));
}
inline AuthError browser() { return signIn(Code::browser, QStringLiteral("Failed to open browser")); }
inline AuthError server(const QString& description) {
    return signIn(Code::serverRefused, QStringLiteral("Server returned error: "), description);
}
inline AuthError exchangeFailed(const QString& status) {
    return signIn(Code::exchangeFailed, QStringLiteral("Token exchange failed with status: "), status);
}
inline AuthError linkFailed(const QString& reason) {
    return signIn(Code::linkFailed, QStringLiteral("Failed to link account: "), reason);
}
inline AuthError alreadyLinked() {
    return signIn(Code::alreadyLinked, QStringLiteral("Account is already linked to an email"));
}

inline AuthError cancelled() {
    return {AuthError::Kind::cancelled, Code::cancelled, QStringLiteral("The sign-in was cancelled")};
}
inline AuthError notAuthenticated() {
    return {AuthError::Kind::authentication, Code::notAuthenticated, QStringLiteral("Not authenticated")};
}
inline AuthError decoding(const QString& reason) {
    return {AuthError::Kind::transport, Code::decoding, QStringLiteral("Failed to decode response: ") + reason};
}

} // namespace quillo::authFailure
