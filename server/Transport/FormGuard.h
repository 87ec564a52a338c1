#pragma once

#include "Transport/Http.h"

#include <chrono>
#include <optional>
#include <string>

namespace quillo::server {

/// Accepts only forms that this server has shown to the same browser. It checks a cookie that no other site can set or
/// read against its keyed hash in the form (the double-submit pattern), and the origin of the form if the browser
/// reports it. Thread-safe.
class FormGuard {
public:
    using WallClock = std::function<std::chrono::system_clock::time_point()>;
    static constexpr std::chrono::minutes lifetime{30};

    explicit FormGuard(WallClock clock);

    struct Pass {
        std::string token;  ///< for the hidden field
        std::string cookie; ///< the value of Set-Cookie
    };
    /// The token for a new page. An existing cookie is kept, so that the browser's other pages remain valid.
    [[nodiscard]] Pass issue(const HttpRequest& request) const;

    enum class Verdict { genuine, expired, foreign };
    /// Whether a form with `token` is valid.
    [[nodiscard]] Verdict check(const HttpRequest& request, const std::string& token) const;

    /// The Set-Cookie header that deletes the cookie.
    [[nodiscard]] std::string ending(const HttpRequest& request) const;

private:
    [[nodiscard]] std::string cookieName(const HttpRequest& request) const;
    [[nodiscard]] std::optional<std::string> cookieOf(const HttpRequest& request) const;
    [[nodiscard]] std::string sign(const std::string& cookie, const std::string& time) const;
    [[nodiscard]] std::string setCookie(const HttpRequest& request, const std::string& value,
                                        std::chrono::seconds age) const;

    WallClock m_clock;
    std::string m_key;
    /// Browsers share cookies among all servers of a host, on any port.
    std::string m_instance;
};

} // namespace quillo::server
