#include "Accounts/RateLimiter.h"

#include <algorithm>
#include <cmath>

namespace quillo::server {
namespace {

double secondsBetween(std::chrono::steady_clock::time_point from, std::chrono::steady_clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

} // namespace

RateLimiter::RateLimiter(int burst, std::chrono::seconds window, SteadyClock clock)
    : m_burst(burst), m_window(window), m_clock(std::move(clock)), m_swept(m_clock()) {}

std::optional<std::chrono::seconds> RateLimiter::admit(const std::string& key) {
    const std::scoped_lock lock(m_mutex);
    const auto now = m_clock();
    if (now - m_swept >= m_window)
        forgetFull(now);
    const double perSecond = m_burst / static_cast<double>(m_window.count());
    auto& bucket = m_buckets.try_emplace(key, Bucket{static_cast<double>(m_burst), now}).first->second;
    bucket.tokens = std::min<double>(m_burst, bucket.tokens + secondsBetween(bucket.at, now) * perSecond);
    bucket.at = now;
    if (bucket.tokens >= 1) {
        bucket.tokens -= 1;
        return std::nullopt;
    }
    return std::chrono::seconds(std::max<long>(1, std::lround(std::ceil((1 - bucket.tokens) / perSecond))));
}

void RateLimiter::forgetFull(std::chrono::steady_clock::time_point now) {
    std::erase_if(m_buckets, [&](const auto& entry) { return now - entry.second.at >= m_window; });
    m_swept = now;
}

} // namespace quillo::server
