#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quillo::server {

/// A few separate threads that hash passwords. The limited queue bounds the memory and the time that a flood of
/// sign-ins can take. Thread-safe.
class PasswordWorkers {
public:
    PasswordWorkers(unsigned threads, size_t maxWaiting);
    /// Stops.
    ~PasswordWorkers();
    PasswordWorkers(const PasswordWorkers&) = delete;
    PasswordWorkers& operator=(const PasswordWorkers&) = delete;

    /// False when the queue is full; `job` is then not taken. A job must not throw.
    [[nodiscard]] bool submit(std::function<void()> job);

    /// Drops queued jobs and returns when running ones have ended.
    void stop();

private:
    void work();

    const size_t m_maxWaiting;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_waiting;
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};

} // namespace quillo::server
