#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace quillo::test {

/// A TCP proxy on loopback that simulates network failures on demand. It has its own thread, so that a busy test does
/// not delay the traffic. The functions may be called from any thread; they return when the fault is in effect.
class FaultProxy {
public:
    /// What a connection carries, recognised by its first byte: HTTP over TLS or a plain WebSocket.
    enum class Traffic { any, plain, tls };
    enum class Ending {
        finish, ///< closed in order
        reset,  ///< closed with a reset, as by a router that forgot it
    };
    /// A fault that hits the first connection of its kind over which the client has sent this many bytes, at exactly
    /// that byte.
    struct Trap {
        Traffic traffic = Traffic::any;
        int64_t bytes = 0; ///< from the client, counted from the connection's beginning or from the trap's, see `fresh`
        bool fresh = false; ///< counts from the beginning, and only connections made after the trap was set
        /// How the connection ends; without a value it stays open but transfers nothing more.
        std::optional<Ending> ending;
    };
    struct Counts {
        int64_t connections = 0; ///< accepted since the start
        int64_t open = 0;
        int64_t trapped = 0;   ///< traps that closed
        int64_t bytesUp = 0;   ///< forwarded from clients
        int64_t bytesDown = 0; ///< forwarded to clients
    };

    /// Forwards to 127.0.0.1:`serverPort`. Throws std::system_error when there is no port left.
    explicit FaultProxy(uint16_t serverPort);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    [[nodiscard]] uint16_t port() const;

    /// Refuses new connections, or accepts them again, on the same port. Open connections stay.
    void refuse(bool refused);
    /// Stops traffic in both directions without ending a connection; new connections are accepted and wait.
    void stall(bool stalled);
    /// Stops traffic from the server to the client only.
    void stallAnswers(bool stalled);
    /// Every exchange waits this long, as over a slow line; 0 for none. `heal` leaves it.
    void delay(std::chrono::milliseconds time);
    /// Ends every connection.
    void cut(Ending ending);
    void set(Trap trap);
    void clearTrap();
    /// Removes all faults; connections stalled by a trap continue.
    void heal();

    [[nodiscard]] Counts counts() const;

private:
    class Worker;
    std::unique_ptr<Worker> m_worker;
};

} // namespace quillo::test
