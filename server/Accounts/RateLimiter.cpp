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
    : burst_(burst), window_(window), clock_(std::move(clock)), swept_(clock_()) {}

std::optional<std::chrono::seconds> RateLimiter::admit(const std::string& key) {
    const std::scoped_lock lock(mutex_);
    const auto now = clock_();
    if (now - swept_ >= window_)
        forgetFull(now);
    const double perSecond = burst_ / static_cast<double>(window_.count());
    auto& bucket = buckets_.try_emplace(key, Bucket{static_cast<double>(burst_), now}).first->second;
    bucket.tokens = std::min<double>(burst_, bucket.tokens + secondsBetween(bucket.at, now) * perSecond);
    bucket.at = now;
    if (bucket.tokens >= 1) {
        bucket.tokens -= 1;
        return std::nullopt;
    }
    return std::chrono::seconds(std::max<long>(1, std::lround(std::ceil((1 - bucket.tokens) / perSecond))));
}

void RateLimiter::forgetFull(std::chrono::steady_clock::time_point now) {
    std::erase_if(buckets_, [&](const auto& entry) { return now - entry.second.at >= window_; });
    swept_ = now;
}

} // namespace quillo::server
