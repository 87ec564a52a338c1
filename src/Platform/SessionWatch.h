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
    /// Whether the session is locked or another one has the screen, as far as the desktop says so.
    [[nodiscard]] virtual bool isAway() const = 0;
};

} // namespace quillo
