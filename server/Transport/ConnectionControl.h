#pragma once

#include "Transport/Asio.h"

#include <chrono>
#include <functional>
#include <memory>

namespace quillo::server {

/// The deadline of one connection, and the way to end it from outside. Used on the connection's strand, but for
/// `request` and `requestCut`. The timer is armed again only when it fires, so that moving the deadline with every
/// frame is cheap.
class ConnectionControl : public std::enable_shared_from_this<ConnectionControl> {
public:
    using Clock = std::chrono::steady_clock;

    ConnectionControl(asio::any_io_executor strand, int socket);

    /// Calls `expired` when the time comes; without a function the connection is cut. Replaces the deadline before it.
    void expireAt(Clock::time_point time, std::function<void()> expired = {});
    void expireAfter(std::chrono::milliseconds time, std::function<void()> expired = {});

    /// Cuts the connection: every operation on the socket ends with an error. The socket stays open until its owner
    /// closes it.
    void cut();

    /// True when the client has closed its side, which nobody notices while nothing is read.
    [[nodiscard]] bool peerHasClosed() const;

    /// What is asked of a connection from outside.
    enum class Request {
        drain,   ///< the server will stop soon: end what can be ended
        stop,    ///< the server stops: end now
        signOut, ///< its user is not signed in any more
    };
    /// Takes requests. Without it "stop" cuts the connection, and the others do nothing.
    void onRequest(std::function<void(Request)> handler) { m_handler = std::move(handler); }
    /// Thread-safe.
    void request(Request request);
    /// `cut` from another thread.
    void requestCut();

    /// The socket is about to close: no call touches it any more.
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
