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

/// Our own connection to the compositor. Used by one thread at a time; no call waits longer than its deadline.
class WaylandConnection {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Null, with a log line naming `purpose`, when no compositor answers within a second.
    static std::unique_ptr<WaylandConnection> open(const QString& purpose);
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    [[nodiscard]] wl_display* get() const { return m_display; }
    [[nodiscard]] int descriptor() const;
    /// Handles received events and sends queued requests; does not wait.
    void dispatch();
    /// Handles events until `done` or the deadline; returns the last result of `done`. If `descriptor` is not negative,
    /// `done` is also checked whenever it becomes readable.
    bool dispatchUntil(const std::function<bool()>& done, Deadline deadline, int descriptor = -1);
    /// Waits until the compositor has handled all requests so far and we have handled its answers.
    bool roundTrip(Deadline deadline);
    /// Whether the connection has ended: the compositor is gone or refused a request.
    [[nodiscard]] bool isBroken() const;
    /// Why it has ended, for the log.
    [[nodiscard]] QString fault() const;

    /// The version of the compositor's global with this name; 0 when it has none.
    [[nodiscard]] uint32_t version(const char* interfaceName) const;
    /// Binds the compositor's first global with the name of `interface`; null when it has none.
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
