#pragma once

#include "Concurrency/Executor.h"
#include "Concurrency/Task.h"

#include <QDateTime>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>

namespace quillo {

/// Time as a dependency: code that waits takes a `Clock`, so that a test can skip seven days at once.
///
/// Used on one thread, whose executor resumes the waiting coroutines.
class Clock {
public:
    using Duration = std::chrono::nanoseconds;
    using Instant = std::chrono::time_point<std::chrono::steady_clock, Duration>;

    /// A scheduled call; destroying or resetting it cancels the call.
    class Timer {
    public:
        virtual ~Timer() = default;
    };
    using TimerHandle = std::unique_ptr<Timer>;

    virtual ~Clock() = default;

    /// Monotonic time, for intervals.
    [[nodiscard]] virtual Instant now() const = 0;
    /// Wall-clock time in UTC, for records and logs.
    [[nodiscard]] virtual QDateTime wallTime() const = 0;

    /// Calls `callback` once after `delay` unless the handle is dropped before.
    [[nodiscard]] virtual TimerHandle callLater(Duration delay, std::function<void()> callback) = 0;

    /// Suspends for `duration`; returns true when it has passed, false when `token` was triggered first.
    Task<bool> sleep(Duration duration, std::stop_token token = {});

    /// The executor that resumes coroutines waiting on this clock.
    [[nodiscard]] Executor& executor() const { return m_executor; }

protected:
    explicit Clock(Executor& executor) : m_executor(executor) {}

private:
    Executor& m_executor;
};

/// The real time, on timers of the calling thread's Qt event loop.
class SystemClock final : public Clock {
public:
    explicit SystemClock(Executor& executor) : Clock(executor) {}

    [[nodiscard]] Instant now() const override;
    [[nodiscard]] QDateTime wallTime() const override;
    [[nodiscard]] TimerHandle callLater(Duration delay, std::function<void()> callback) override;
};

/// Time that changes only when a test advances it.
class ManualClock final : public Clock {
public:
    explicit ManualClock(EventExecutor& executor);
    ~ManualClock() override;

    [[nodiscard]] Instant now() const override { return m_now; }
    [[nodiscard]] QDateTime wallTime() const override { return m_wallTime; }
    [[nodiscard]] TimerHandle callLater(Duration delay, std::function<void()> callback) override;

    /// Advances the time. Fires each due timer at its own instant, and runs what it wakes before firing the next.
    void advance(Duration duration);
    /// How many calls are scheduled.
    [[nodiscard]] size_t pending() const;

private:
    struct Schedule;
    EventExecutor& m_eventExecutor;
    Instant m_now{std::chrono::hours(1)};
    QDateTime m_wallTime;
    std::shared_ptr<Schedule> m_schedule;
};

} // namespace quillo
