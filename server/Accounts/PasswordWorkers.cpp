#include "Accounts/PasswordWorkers.h"

namespace quillo::server {

PasswordWorkers::PasswordWorkers(unsigned threads, size_t maxWaiting) : maxWaiting_(maxWaiting) {
    for (unsigned i = 0; i < threads; ++i)
        threads_.emplace_back([this] { work(); });
}

PasswordWorkers::~PasswordWorkers() { stop(); }

bool PasswordWorkers::submit(std::function<void()> job) {
    {
        const std::scoped_lock lock(mutex_);
        if (stopping_ || waiting_.size() >= maxWaiting_)
            return false;
        waiting_.push_back(std::move(job));
    }
    changed_.notify_one();
    return true;
}

void PasswordWorkers::stop() {
    std::deque<std::function<void()>> dropped;
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        dropped.swap(waiting_);
    }
    changed_.notify_all();
    dropped.clear();
    for (auto& thread : threads_)
        thread.join();
    threads_.clear();
}

void PasswordWorkers::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (stopping_)
            return;
        auto job = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
    }
}

} // namespace quillo::server
