#include "Concurrency/Clock.h"

#include "Concurrency/Wakeup.h"

#include <QTimer>

namespace quillo {

namespace {

class QtTimer final : public Clock::Timer {
public:
    QtTimer(Clock::Duration delay, std::function<void()> callback) {
        m_timer.setSingleShot(true);
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.callOnTimeout(std::move(callback));
        m_timer.start(std::chrono::ceil<std::chrono::milliseconds>(delay));
    }

private:
    QTimer m_timer;
};

} // namespace

Task<bool> Clock::sleep(Duration duration, std::stop_token token) {
    auto wakeup = std::make_shared<Wakeup>(m_executor);
    const auto timer = callLater(duration, [wakeup] { wakeup->wake(true); });
    const std::stop_callback onStop(token, [wakeup] { wakeup->wake(false); });
    co_return co_await *wakeup;
}

Clock::Instant SystemClock::now() const { return std::chrono::steady_clock::now(); }

QDateTime SystemClock::wallTime() const { return QDateTime::currentDateTimeUtc(); }

Clock::TimerHandle SystemClock::callLater(Duration delay, std::function<void()> callback) {
    return std::make_unique<QtTimer>(delay, std::move(callback));
}

struct ManualClock::Schedule {
    std::multimap<Instant, std::pair<uint64_t, std::function<void()>>> calls;
    uint64_t nextId = 0;
};

namespace {

class ManualTimer final : public Clock::Timer {
public:
    explicit ManualTimer(std::function<void()> cancel) : m_cancel(std::move(cancel)) {}
    ~ManualTimer() override { m_cancel(); }

private:
    std::function<void()> m_cancel;
};

} // namespace

ManualClock::ManualClock(EventExecutor& executor)
    : Clock(executor), m_eventExecutor(executor), m_wallTime(QDate(2026, 1, 1), QTime(12, 0), Qt::UTC),
      m_schedule(std::make_shared<Schedule>()) {}

ManualClock::~ManualClock() = default;

Clock::TimerHandle ManualClock::callLater(Duration delay, std::function<void()> callback) {
    const auto id = m_schedule->nextId++;
    m_schedule->calls.emplace(m_now + std::max(delay, Duration::zero()), std::pair(id, std::move(callback)));
    return std::make_unique<ManualTimer>([schedule = std::weak_ptr(m_schedule), id] {
        if (const auto strong = schedule.lock())
            std::erase_if(strong->calls, [id](const auto& call) { return call.second.first == id; });
    });
}

void ManualClock::advance(Duration duration) {
    const auto end = m_now + duration;
    m_eventExecutor.drain();
    while (!m_schedule->calls.empty() && m_schedule->calls.begin()->first <= end) {
        auto due = m_schedule->calls.extract(m_schedule->calls.begin());
        const auto step = due.key() - m_now;
        m_now = due.key();
        m_wallTime = m_wallTime.addMSecs(std::chrono::duration_cast<std::chrono::milliseconds>(step).count());
        due.mapped().second();
        m_eventExecutor.drain();
    }
    m_wallTime = m_wallTime.addMSecs(std::chrono::duration_cast<std::chrono::milliseconds>(end - m_now).count());
    m_now = end;
    m_eventExecutor.drain();
}

size_t ManualClock::pending() const { return m_schedule->calls.size(); }

} // namespace quillo
