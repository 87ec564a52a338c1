#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace quillo::server {

/// The one client there is: the application. It is public, it has no secret (RFC 8252).
inline constexpr const char* oauthClientId = "quillo-speech-macos";
inline constexpr const char* oauthRedirectUri = "quillo://auth/callback";

/// What a page for signing in is asked for (RFC 6749 section 4.1.1, RFC 7636 section 4.3).
struct AuthorizationRequest {
    std::string challenge;
    std::string state;
    std::string anonymousUserId; ///< empty when there is none

    /// The same request as a query.
    [[nodiscard]] std::string query() const;
    /// The way back with a code.
    [[nodiscard]] std::string callback(const std::string& code) const;
    /// The way back without (RFC 6749 section 4.1.2.1).
    [[nodiscard]] std::string refusal(const std::string& error, const std::string& description) const;
};

/// The request names a client or a way back that this server does not know: nothing may be sent there.
struct UnknownClient {};

/// The request is wrong, which the client is told by sending the browser to `callback`.
struct RefusedRequest {
    std::string callback;
};

std::variant<AuthorizationRequest, UnknownClient, RefusedRequest> readAuthorizationRequest(std::string_view query);

/// A code challenge or verifier: 43 to 128 unreserved characters (RFC 7636 section 4.1).
bool isCodeVerifier(std::string_view text);

} // namespace quillo::server
