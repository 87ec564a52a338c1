#include "Transport/AuthorizationRequest.h"

#include "Foundation/Encoding.h"
#include "Foundation/FormFields.h"

#include <algorithm>

namespace quillo::server {
namespace {

constexpr size_t maxStateLength = 512;
constexpr size_t maxUserIdLength = 64;
constexpr size_t challengeLength = 43; // base64url of 32 bytes

/// RFC 6749 appendix A.5: visible ASCII and blanks.
bool isState(const std::string& text) {
    return !text.empty() && text.size() <= maxStateLength &&
           std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

bool isUnreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

} // namespace

bool isCodeVerifier(std::string_view text) {
    return text.size() >= 43 && text.size() <= 128 && std::ranges::all_of(text, isUnreserved);
}

std::string AuthorizationRequest::query() const {
    std::string text = "client_id=" + encodePercent(oauthClientId) +
                       "&redirect_uri=" + encodePercent(oauthRedirectUri) +
                       "&response_type=code&code_challenge=" + encodePercent(challenge) +
                       "&code_challenge_method=S256&state=" + encodePercent(state);
    if (!anonymousUserId.empty())
        text += "&anonymous_user_id=" + encodePercent(anonymousUserId);
    return text;
}

std::string AuthorizationRequest::callback(const std::string& code) const {
    return std::string(oauthRedirectUri) + "?code=" + encodePercent(code) + "&state=" + encodePercent(state);
}

std::string AuthorizationRequest::refusal(const std::string& error, const std::string& description) const {
    std::string url = std::string(oauthRedirectUri) + "?error=" + encodePercent(error) +
                      "&error_description=" + encodePercent(description);
    if (!state.empty())
        url += "&state=" + encodePercent(state);
    return url;
}

std::variant<AuthorizationRequest, UnknownClient, RefusedRequest> readAuthorizationRequest(std::string_view query) {
    const auto fields = FormFields::parse(query);
    if (!fields)
        return UnknownClient{};
    if (fields->value("client_id") != oauthClientId || fields->isRepeated("client_id"))
        return UnknownClient{};
    if (fields->value("redirect_uri") != oauthRedirectUri || fields->isRepeated("redirect_uri"))
        return UnknownClient{};

    AuthorizationRequest request;
    if (auto state = fields->value("state"); isState(state) && !fields->isRepeated("state"))
        request.state = std::move(state);
    const auto refuse = [&request](const char* error, const char* description) {
        return RefusedRequest{request.refusal(error, description)};
    };
    for (const char* name :
         {"response_type", "code_challenge", "code_challenge_method", "state", "anonymous_user_id"}) {
        if (fields->isRepeated(name))
            return refuse("invalid_request", "A parameter is given twice.");
    }
    if (request.state.empty())
        return refuse("invalid_request", "\"state\" must be 1 to 512 characters of ASCII.");
    if (fields->value("response_type") != "code")
        return refuse("unsupported_response_type", "\"response_type\" must be \"code\".");
    if (fields->value("code_challenge_method") != "S256")
        return refuse("invalid_request", "\"code_challenge_method\" must be \"S256\".");
    request.challenge = fields->value("code_challenge");
    if (request.challenge.size() != challengeLength || !isCodeVerifier(request.challenge))
        return refuse("invalid_request", "\"code_challenge\" must be a SHA-256 in base64url.");
    // An invalid id prevents the merge, not the sign-in.
    auto anonymousUserId = fields->value("anonymous_user_id");
    if (anonymousUserId.size() <= maxUserIdLength && std::ranges::all_of(anonymousUserId, isUnreserved))
        request.anonymousUserId = std::move(anonymousUserId);
    return request;
}

} // namespace quillo::server
