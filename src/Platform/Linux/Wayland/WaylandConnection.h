#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include <wayland-client-core.h>

struct wl_registry;
struct wl_interface;

namespace quillo {

/// A connection of our own to the compositor. One thread at a time; nothing waits longer than its deadline.
class WaylandConnection {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Nothing, with a log line naming `purpose`, when no compositor answers within a second.
    static std::unique_ptr<WaylandConnection> open(const QString& purpose);
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    [[nodiscard]] wl_display* get() const { return m_display; }
    [[nodiscard]] int descriptor() const;
    /// Handles what has arrived and sends what is queued; does not wait.
    void dispatch();
    /// Handles events until `done` or the deadline; returns what `done` says then. While `descriptor` is not negative
    /// `done` is looked at too whenever it can be read.
    bool dispatchUntil(const std::function<bool()>& done, Deadline deadline, int descriptor = -1);
    /// Waits until the compositor has handled everything sent so far, and its answers have been handled here.
    bool roundTrip(Deadline deadline);
    /// The connection is over: the compositor has gone or refused a request.
    [[nodiscard]] bool isBroken() const;
    /// Why it is over, for the log.
    [[nodiscard]] QString fault() const;

    /// Version of the compositor's global of that name; 0 when it has none.
    [[nodiscard]] uint32_t version(const char* interfaceName) const;
    /// Binds the compositor's first global named as `interface` is; nothing when it has none.
    [[nodiscard]] void* bind(const wl_interface& interface, uint32_t version) const;

private:
    struct Global {
        uint32_t name = 0;
        std::string interface;
        uint32_t version = 0;
    };

    explicit WaylandConnection(wl_display* display);
    void wait(int milliseconds, int other);
    [[nodiscard]] const Global* find(const char* interfaceName) const;

    wl_display* m_display;
    wl_registry* m_registry = nullptr;
    std::vector<Global> m_globals;
};

} // namespace quillo
