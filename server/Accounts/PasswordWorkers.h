#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quillo::server {

/// A few threads that hash passwords, beside those that serve everything else. Bounds what waits, and so the memory and
/// the time that a flood of sign-ins can take. Thread-safe.
class PasswordWorkers {
public:
    PasswordWorkers(unsigned threads, size_t maxWaiting);
    /// Stops.
    ~PasswordWorkers();
    PasswordWorkers(const PasswordWorkers&) = delete;
    PasswordWorkers& operator=(const PasswordWorkers&) = delete;

    /// False when too many wait; `job` is then not taken. A job must not throw.
    [[nodiscard]] bool submit(std::function<void()> job);

    /// Drops what waits and returns when what was begun has ended.
    void stop();

private:
    void work();

    const size_t maxWaiting_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> waiting_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

} // namespace quillo::server
