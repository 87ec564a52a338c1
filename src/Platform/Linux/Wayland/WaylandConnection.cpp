#include "Platform/Linux/Wayland/WaylandConnection.h"

#include "Core/Log.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <poll.h>
#include <wayland-client-protocol.h>

namespace quillo {

namespace {

using std::chrono::steady_clock;

constexpr auto openLimit = std::chrono::seconds(1);

} // namespace

std::unique_ptr<WaylandConnection> WaylandConnection::open(const QString& purpose) {
    const auto complain = [&purpose](const QString& cause) {
        appLog(QStringLiteral("❌ No Wayland compositor for %1 (%2)").arg(purpose, cause), LogLevel::warn,
               QStringLiteral("Wayland"));
        return nullptr;
    };
    auto* display = wl_display_connect(nullptr);
    if (!display)
        return complain(QStringLiteral("cannot connect to %1: %2")
                            .arg(qEnvironmentVariable("WAYLAND_DISPLAY", QStringLiteral("wayland-0")),
                                 QString::fromLocal8Bit(std::strerror(errno))));
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
    if (!connection->roundTrip(steady_clock::now() + openLimit))
        return complain(connection->isBroken() ? connection->fault() : QStringLiteral("it does not answer"));
    return connection;
}

WaylandConnection::WaylandConnection(wl_display* display) : m_display(display) {
    static constexpr wl_registry_listener listener{
        .global =
            [](void* data, wl_registry*, uint32_t name, const char* interface, uint32_t version) {
                static_cast<WaylandConnection*>(data)->m_globals.push_back({name, interface, version});
            },
        .global_remove =
            [](void* data, wl_registry*, uint32_t name) {
                std::erase_if(static_cast<WaylandConnection*>(data)->m_globals,
                              [name](const Global& global) { return global.name == name; });
            },
    };
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &listener, this);
}

WaylandConnection::~WaylandConnection() {
    wl_registry_destroy(m_registry);
    wl_display_disconnect(m_display);
}

int WaylandConnection::descriptor() const { return wl_display_get_fd(m_display); }

void WaylandConnection::wait(int milliseconds, int other) {
    while (wl_display_prepare_read(m_display) != 0) {
        if (wl_display_dispatch_pending(m_display) < 0)
            return;
        milliseconds = 0; // something arrived: let the caller check
    }
    // Data that does not fit into the socket is sent in the next round; the compositor either reads it or disconnects
    // us.
    const bool full = wl_display_flush(m_display) < 0 && errno == EAGAIN;
    std::array<pollfd, 2> descriptors{
        pollfd{.fd = descriptor(), .events = static_cast<short>(full ? POLLIN | POLLOUT : POLLIN), .revents = 0},
        pollfd{.fd = other, .events = POLLIN, .revents = 0}}; // a negative descriptor is ignored
    ::poll(descriptors.data(), descriptors.size(), milliseconds);
    if ((descriptors[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
        wl_display_read_events(m_display);
    else
        wl_display_cancel_read(m_display);
    wl_display_dispatch_pending(m_display);
}

void WaylandConnection::dispatch() {
    if (isBroken())
        return;
    wait(0, -1);
    wl_display_flush(m_display);
}

bool WaylandConnection::dispatchUntil(const std::function<bool()>& done, Deadline deadline, int descriptor) {
    while (!done()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
        if (isBroken() || left.count() <= 0)
            return false;
        wait(static_cast<int>(std::min<int64_t>(left.count(), 60000)), descriptor);
    }
    return true;
}

bool WaylandConnection::roundTrip(Deadline deadline) {
    static constexpr wl_callback_listener listener{
        .done = [](void* data, wl_callback*, uint32_t) { *static_cast<bool*>(data) = true; }};
    bool answered = false;
    auto* callback = wl_display_sync(m_display);
    wl_callback_add_listener(callback, &listener, &answered);
    const bool done = dispatchUntil([&answered] { return answered; }, deadline);
    wl_callback_destroy(callback);
    return done;
}

bool WaylandConnection::isBroken() const { return wl_display_get_error(m_display) != 0; }

QString WaylandConnection::fault() const {
    const int error = wl_display_get_error(m_display);
    if (error != EPROTO)
        return QString::fromLocal8Bit(std::strerror(error));
    const wl_interface* interface = nullptr;
    const uint32_t code = wl_display_get_protocol_error(m_display, &interface, nullptr);
    return QStringLiteral("protocol error %1 of %2")
        .arg(code)
        .arg(interface ? QString::fromLatin1(interface->name) : QStringLiteral("an object that is gone"));
}

const WaylandConnection::Global* WaylandConnection::find(const char* interfaceName) const {
    const auto found = std::ranges::find(m_globals, interfaceName, &Global::interface);
    return found == m_globals.end() ? nullptr : &*found;
}

uint32_t WaylandConnection::version(const char* interfaceName) const {
    const auto* global = find(interfaceName);
    return global ? global->version : 0;
}

void* WaylandConnection::bind(const wl_interface& interface, uint32_t version) const {
    const auto* global = find(interface.name);
    return global ? wl_registry_bind(m_registry, global->name, &interface, std::min(version, global->version))
                  : nullptr;
}

} // namespace quillo
