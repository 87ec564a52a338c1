#pragma once

#include "Concurrency/Executor.h"

#include <coroutine>
#include <mutex>
#include <utility>

namespace quillo {

/// Resumes one suspended coroutine: the first `wake` resumes it, with that call's value, by work posted to the
/// executor. `wake` may be called from any thread, and before the coroutine awaits.
class Wakeup {
public:
    explicit Wakeup(Executor& executor) : m_executor(executor) {}

    void wake(bool value) {
        std::coroutine_handle<> waiting;
        {
            const std::lock_guard lock(m_mutex);
            if (m_woken)
                return;
            m_woken = true;
            m_value = value;
            waiting = std::exchange(m_waiter, nullptr);
        }
        if (waiting)
            m_executor.post([waiting] { waiting.resume(); });
    }

    [[nodiscard]] bool await_ready() {
        const std::lock_guard lock(m_mutex);
        return m_woken;
    }
    bool await_suspend(std::coroutine_handle<> handle) {
        const std::lock_guard lock(m_mutex);
        if (m_woken)
            return false;
        m_waiter = handle;
        return true;
    }
    bool await_resume() {
        const std::lock_guard lock(m_mutex);
        return m_value;
    }

private:
    Executor& m_executor;
    std::mutex m_mutex;
    std::coroutine_handle<> m_waiter;
    bool m_woken = false;
    bool m_value = false;
};

} // namespace quillo
