#pragma once

#include "Concurrency/Clock.h"

#include <chrono>
#include <functional>
#include <optional>

namespace quillo {

/// Refuses the hotkeys while the user is away, and says so when the user seems to be there all the same: a locker that
/// was killed, or a session manager that knows the wrong session, reports a locked session for ever. Main thread.
class KeyRefusal {
public:
    /// A press that follows another refused one within this time is no accident: a user who sees nothing tries again.
    static constexpr std::chrono::seconds repetition{10};
    /// The shortest time between two notices.
    static constexpr std::chrono::minutes silence{10};

    /// `notify` informs the user. `clock` must outlive the object.
    KeyRefusal(Clock& clock, std::function<bool()> isAway, std::function<void()> notify)
        : m_clock(clock), m_isAway(std::move(isAway)), m_notify(std::move(notify)) {}

    /// Whether the key that was just pressed must do nothing. Logs it.
    [[nodiscard]] bool refuses();

private:
    Clock& m_clock;
    std::function<bool()> m_isAway;
    std::function<void()> m_notify;
    std::optional<Clock::Instant> m_refusedAt;
    std::optional<Clock::Instant> m_notifiedAt;
};

} // namespace quillo
