#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace quillo::server {

/// Counts events per key in a token bucket: `burst` at once, refilled evenly over `window`. Thread-safe. Keys with a
/// full bucket are forgotten, so that only the keys active within a window take memory.
class RateLimiter {
public:
    using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

    RateLimiter(int burst, std::chrono::seconds window, SteadyClock clock);

    /// Counts the event and returns nothing when it may happen; otherwise returns how long to wait (at least a second).
    std::optional<std::chrono::seconds> admit(const std::string& key);

private:
    struct Bucket {
        double tokens;
        std::chrono::steady_clock::time_point at;
    };
    void forgetFull(std::chrono::steady_clock::time_point now);

    std::mutex m_mutex;
    int m_burst;
    std::chrono::seconds m_window;
    SteadyClock m_clock;
    std::chrono::steady_clock::time_point m_swept;
    std::unordered_map<std::string, Bucket> m_buckets;
};

} // namespace quillo::server
