#pragma once

#include <functional>

namespace quillo {

/// Notices that the user leaves the desktop session: it is locked, another session takes the screen, or the machine
/// goes to sleep. Main thread.
class SessionWatch {
public:
    virtual ~SessionWatch() = default;

    /// Calls `onLeft` each time the user leaves. Several reasons in a row each call it.
    virtual void start(std::function<void()> onLeft) = 0;
    /// While set, a machine that goes to sleep first waits until it is cleared, as long as the desktop lets us (usually
    /// 5 s). What ends a recording then has time to finish it. A desktop without such a thing does not wait.
    virtual void delaySleep(bool delays) = 0;
    /// Whether the session is locked or another one has the screen, as far as the desktop says so.
    [[nodiscard]] virtual bool isAway() const = 0;
};

} // namespace quillo
