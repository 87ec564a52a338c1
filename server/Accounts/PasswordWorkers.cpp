#include "Accounts/PasswordWorkers.h"

namespace quillo::server {

PasswordWorkers::PasswordWorkers(unsigned threads, size_t maxWaiting) : m_maxWaiting(maxWaiting) {
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

PasswordWorkers::~PasswordWorkers() { stop(); }

bool PasswordWorkers::submit(std::function<void()> job) {
    {
        const std::scoped_lock lock(m_mutex);
        if (m_stopping || m_waiting.size() >= m_maxWaiting)
            return false;
        m_waiting.push_back(std::move(job));
    }
    m_changed.notify_one();
    return true;
}

void PasswordWorkers::stop() {
    std::deque<std::function<void()>> dropped;
    {
        const std::scoped_lock lock(m_mutex);
        m_stopping = true;
        dropped.swap(m_waiting);
    }
    m_changed.notify_all();
    dropped.clear();
    for (auto& thread : m_threads)
        thread.join();
    m_threads.clear();
}

void PasswordWorkers::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stopping || !m_waiting.empty(); });
        if (m_stopping)
            return;
        auto job = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
    }
}

} // namespace quillo::server
