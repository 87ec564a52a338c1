#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/Wakeup.h"

#include <memory>
#include <vector>

namespace quillo {

/// An event that happens once; any number of coroutines may wait for it. Used on one thread, the clock's.
class AsyncEvent {
public:
    void set() {
        m_state->isSet = true;
        for (const auto& waiter : std::exchange(m_state->waiters, {}))
            waiter->wake(true);
    }
    [[nodiscard]] bool isSet() const { return m_state->isSet; }

    /// Suspends until the event is set (true), or `timeout` has passed or `token` was triggered (false).
    Task<bool> wait(Clock& clock, Clock::Duration timeout, std::stop_token token = {}) const {
        return wait(m_state, clock, timeout, std::move(token));
    }

private:
    struct State {
        bool isSet = false;
        std::vector<std::shared_ptr<Wakeup>> waiters;
    };

    static Task<bool> wait(std::shared_ptr<State> state, Clock& clock, Clock::Duration timeout, std::stop_token token) {
        if (state->isSet)
            co_return true;
        auto wakeup = std::make_shared<Wakeup>(clock.executor());
        state->waiters.push_back(wakeup);
        const auto timer = clock.callLater(timeout, [wakeup] { wakeup->wake(false); });
        const std::stop_callback onStop(token, [wakeup] { wakeup->wake(false); });
        const bool happened = co_await *wakeup;
        std::erase(state->waiters, wakeup);
        co_return happened;
    }

    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace quillo
