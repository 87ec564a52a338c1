#pragma once

#include "Transport/Http.h"

#include <chrono>
#include <optional>
#include <string>

namespace quillo::server {

/// Lets only forms in that this server has shown to the same browser: a cookie that no other site can set or read
/// together with its keyed hash in the form (the double-submit pattern), and the browser's word about where the form
/// was sent from, as far as it gives it. Thread-safe.
class FormGuard {
public:
    using WallClock = std::function<std::chrono::system_clock::time_point()>;
    static constexpr std::chrono::minutes lifetime{30};

    explicit FormGuard(WallClock clock);

    struct Pass {
        std::string token;  ///< for the hidden field
        std::string cookie; ///< the value of Set-Cookie
    };
    /// For a page to be shown. The cookie a browser has already stays, so that its other pages remain valid.
    [[nodiscard]] Pass issue(const HttpRequest& request) const;

    enum class Verdict { genuine, expired, foreign };
    /// Of a form that came with `token`.
    [[nodiscard]] Verdict check(const HttpRequest& request, const std::string& token) const;

    /// Set-Cookie that ends the cookie.
    [[nodiscard]] std::string ending(const HttpRequest& request) const;

private:
    [[nodiscard]] std::string cookieName(const HttpRequest& request) const;
    [[nodiscard]] std::optional<std::string> cookieOf(const HttpRequest& request) const;
    [[nodiscard]] std::string sign(const std::string& cookie, const std::string& time) const;
    [[nodiscard]] std::string setCookie(const HttpRequest& request, const std::string& value,
                                        std::chrono::seconds age) const;

    WallClock m_clock;
    std::string m_key;
    /// Browsers share cookies among all servers of a host, whatever the port.
    std::string m_instance;
};

} // namespace quillo::server
