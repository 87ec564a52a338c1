#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace quillo::server {

/// The only client: the application. It is a public client without a secret (RFC 8252).
inline constexpr const char* oauthClientId = "quillo-speech-macos";
inline constexpr const char* oauthRedirectUri = "quillo://auth/callback";

/// An authorization request (RFC 6749 section 4.1.1, RFC 7636 section 4.3).
struct AuthorizationRequest {
    std::string challenge;
    std::string state;
    std::string anonymousUserId; ///< empty when there is none

    /// The same request as a query.
    [[nodiscard]] std::string query() const;
    /// The callback address with a code.
    [[nodiscard]] std::string callback(const std::string& code) const;
    /// The callback address with an error (RFC 6749 section 4.1.2.1).
    [[nodiscard]] std::string refusal(const std::string& error, const std::string& description) const;
};

/// The request names an unknown client or callback address: nothing may be sent there.
struct UnknownClient {};

/// The request is invalid; the client learns it when the browser is sent to `callback`.
struct RefusedRequest {
    std::string callback;
};

std::variant<AuthorizationRequest, UnknownClient, RefusedRequest> readAuthorizationRequest(std::string_view query);

/// A code challenge or verifier: 43 to 128 unreserved characters (RFC 7636 section 4.1).
bool isCodeVerifier(std::string_view text);

} // namespace quillo::server
