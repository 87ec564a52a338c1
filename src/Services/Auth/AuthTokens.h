#pragma once

#include "Services/Auth/AuthServiceProtocol.h"

#include <QByteArray>

namespace quillo {

/// JSON keys: "access_token", "refresh_token", "expires_in".
struct AuthTokens {
    QString accessToken;
    QString refreshToken;
    int64_t expiresIn = 0; ///< seconds; negative: not known
};

/// The server's answer to a sign-in. JSON keys: "user", "tokens", "is_new_user".
struct AuthResponse {
    AuthUser user;
    AuthTokens tokens;
    bool isNewUser = false;
};

/// Encodes and decodes the account's JSON. Each decode throws std::runtime_error naming the missing or wrong key.
namespace authCoding {
QByteArray encode(const AuthUser& user);
AuthUser decodeUser(const QByteArray& json);
AuthResponse decodeResponse(const QByteArray& json);
/// The answer to a refresh: the tokens themselves, or a response that contains them under "tokens".
AuthTokens decodeTokens(const QByteArray& json);
} // namespace authCoding

} // namespace quillo
