#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace quillo::server {

/// Slows the guessing of passwords down. Attempts count before they are judged, so that many at once gain nothing; and
/// while a key has to wait nothing is judged, so that a right password is answered as a wrong one.
class SignInThrottle {
public:
    using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

    struct Rule {
        int freeAttempts;
        std::chrono::seconds firstWait; ///< doubles with each further attempt
        std::chrono::seconds longestWait;
        std::chrono::seconds forgottenAfter; ///< without an attempt
        size_t maxKeys;                      ///< those that rested longest are forgotten first
    };
    static constexpr Rule emailRule{5, std::chrono::seconds(30), std::chrono::minutes(15), std::chrono::hours(24),
                                    10000};
    /// More, as several people may share an address.
    static constexpr Rule addressRule{30, std::chrono::seconds(30), std::chrono::minutes(15), std::chrono::hours(1),
                                      10000};

    explicit SignInThrottle(SteadyClock clock, const Rule& email = emailRule, const Rule& address = addressRule);

    /// Empty when the password may be judged, which counts as an attempt; otherwise how long to wait.
    std::optional<std::chrono::seconds> admit(const std::string& email, const std::string& address);
    /// The attempt that was admitted last for the two turned out to be right.
    void succeeded(const std::string& email, const std::string& address);

    /// Keys that are remembered.
    [[nodiscard]] size_t size() const;

private:
    struct Entry {
        int attempts = 0;
        std::chrono::steady_clock::time_point blockedUntil;
        std::chrono::steady_clock::time_point touched;
        std::list<std::string>::iterator place;
    };
    struct Table {
        Rule rule;
        std::unordered_map<std::string, Entry> entries;
        std::list<std::string> byUse; ///< rested longest first
    };
    using TimePoint = std::chrono::steady_clock::time_point;
    static std::chrono::seconds waitOf(const Table& table, const std::string& key, TimePoint now);
    static void count(Table& table, const std::string& key, TimePoint now);
    static void forget(Table& table, const std::string& key);
    static void forgetOld(Table& table, TimePoint now);

    mutable std::mutex m_mutex;
    SteadyClock m_clock;
    Table m_emails;
    Table m_addresses;
};

} // namespace quillo::server
