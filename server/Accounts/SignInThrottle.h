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

/// Slows down password guessing. Attempts are counted before they are checked, so that simultaneous attempts have no
/// advantage. While a key has to wait no password is checked, so that a correct one gets the same answer as a wrong
/// one.
class SignInThrottle {
public:
    using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

    struct Rule {
        int freeAttempts;
        std::chrono::seconds firstWait; ///< doubles with each further attempt
        std::chrono::seconds longestWait;
        std::chrono::seconds forgottenAfter; ///< without an attempt
        size_t maxKeys;                      ///< the least recently used ones are forgotten first
    };
    static constexpr Rule emailRule{5, std::chrono::seconds(30), std::chrono::minutes(15), std::chrono::hours(24),
                                    10000};
    /// More, because several people may share an address.
    static constexpr Rule addressRule{30, std::chrono::seconds(30), std::chrono::minutes(15), std::chrono::hours(1),
                                      10000};

    explicit SignInThrottle(SteadyClock clock, const Rule& email = emailRule, const Rule& address = addressRule);

    /// Counts an attempt and returns nothing when the password may be checked; otherwise returns how long to wait.
    std::optional<std::chrono::seconds> admit(const std::string& email, const std::string& address);
    /// The last admitted attempt of these two keys had the correct password.
    void succeeded(const std::string& email, const std::string& address);

    /// Number of remembered keys.
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
        std::list<std::string> byUse; ///< least recently used first
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
