#pragma once

#include "Transport/Asio.h"

#include <chrono>
#include <functional>
#include <memory>

namespace quillo::server {

/// The deadline of one connection, and the way to end it from outside. Used on the connection's strand, except
/// `request` and `requestCut`. The timer is re-armed only when it fires, so that moving the deadline with every frame
/// is cheap.
class ConnectionControl : public std::enable_shared_from_this<ConnectionControl> {
public:
    using Clock = std::chrono::steady_clock;

    ConnectionControl(asio::any_io_executor strand, int socket);

    /// Calls `expired` at the deadline; without a function it cuts the connection. Replaces the previous deadline.
    void expireAt(Clock::time_point time, std::function<void()> expired = {});
    void expireAfter(std::chrono::milliseconds time, std::function<void()> expired = {});

    /// Cuts the connection: every operation on the socket ends with an error. The socket stays open until its owner
    /// closes it.
    void cut();

    /// True when the client has closed its side, which is not detected while nothing is read.
    [[nodiscard]] bool peerHasClosed() const;

    /// Requests to a connection from outside.
    enum class Request {
        drain,   ///< the server will stop soon: end idle connections
        stop,    ///< the server stops: end now
        signOut, ///< its user has been signed out
    };
    /// Handles requests. Without a handler "stop" cuts the connection, and the others do nothing.
    void onRequest(std::function<void(Request)> handler) { m_handler = std::move(handler); }
    /// Thread-safe.
    void request(Request request);
    /// `cut` from another thread.
    void requestCut();

    /// Call before closing the socket: no later call accesses it.
    void release();

    [[nodiscard]] const asio::any_io_executor& strand() const { return m_strand; }

private:
    void arm();

    asio::any_io_executor m_strand;
    int m_socket;
    asio::steady_timer m_timer;
    Clock::time_point m_deadline = Clock::time_point::max();
    bool m_armed = false;
    std::function<void()> m_expired;
    std::function<void(Request)> m_handler;
};

} // namespace quillo::server
