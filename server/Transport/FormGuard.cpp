#include "Transport/FormGuard.h"

#include "Foundation/Encoding.h"

#include <algorithm>
#include <charconv>

namespace quillo::server {
namespace {

constexpr size_t tokenLength = 43; // base64url of 32 bytes

bool isToken(std::string_view text) {
    return text.size() == tokenLength && std::ranges::all_of(text, [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
                      c == '_';
           });
}

int64_t secondsOf(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

} // namespace

FormGuard::FormGuard(WallClock clock)
    : m_clock(std::move(clock)), m_key(randomToken()), m_instance(randomUuid().substr(0, 8)) {}

FormGuard::Pass FormGuard::issue(const HttpRequest& request) const {
    const std::string cookie = cookieOf(request).value_or(randomToken());
    const std::string time = std::to_string(secondsOf(m_clock()));
    return {time + "." + sign(cookie, time), setCookie(request, cookie, lifetime)};
}

FormGuard::Verdict FormGuard::check(const HttpRequest& request, const std::string& token) const {
    // Browsers send it to https and to loopback hosts; our own pages always have the same origin. "Origin" does not
    // help here: under our referrer policy it is "null".
    if (!request.fetchSite.empty() && request.fetchSite != "same-origin")
        return Verdict::foreign;
    const auto cookie = cookieOf(request);
    const auto point = token.find('.');
    if (!cookie || point == std::string::npos ||
        !equalSecrets(token.substr(point + 1), sign(*cookie, token.substr(0, point))))
        return Verdict::expired;
    int64_t time = 0;
    std::from_chars(token.data(), token.data() + point, time);
    const int64_t age = secondsOf(m_clock()) - time;
    return age >= 0 && age <= std::chrono::seconds(lifetime).count() ? Verdict::genuine : Verdict::expired;
}

std::string FormGuard::ending(const HttpRequest& request) const {
    return setCookie(request, "", std::chrono::seconds(0));
}

std::string FormGuard::cookieName(const HttpRequest& request) const {
    return (request.peer.isEncrypted ? "__Host-quillo-form-" : "quillo-form-") + m_instance;
}

std::optional<std::string> FormGuard::cookieOf(const HttpRequest& request) const {
    const std::string wanted = cookieName(request) + "=";
    std::string_view rest = request.cookie;
    while (!rest.empty()) {
        auto pair = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        pair.remove_prefix(std::min(pair.size(), pair.find_first_not_of(' ')));
        if (pair.starts_with(wanted) && isToken(pair.substr(wanted.size())))
            return std::string(pair.substr(wanted.size()));
    }
    return std::nullopt;
}

std::string FormGuard::sign(const std::string& cookie, const std::string& time) const {
    return encodeBase64Url(hmacSha256(m_key, cookie + " " + time));
}

std::string FormGuard::setCookie(const HttpRequest& request, const std::string& value, std::chrono::seconds age) const {
    return cookieName(request) + "=" + value + "; Path=/; Max-Age=" + std::to_string(age.count()) +
           "; HttpOnly; SameSite=Strict" + (request.peer.isEncrypted ? "; Secure" : "");
}

} // namespace quillo::server
