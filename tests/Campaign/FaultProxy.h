#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace quillo::test {

/// A TCP proxy on loopback that fails on demand, in the ways networks do. Works on a thread of its own, so that a busy
/// test does not delay what it forwards. The functions may be called from any thread; they return when the fault
/// stands.
class FaultProxy {
public:
    /// What a connection carries, told by its first byte: HTTP over TLS or a plain WebSocket.
    enum class Traffic { any, plain, tls };
    enum class Ending {
        finish, ///< closed in order
        reset,  ///< closed with a reset, as by a router that forgot it
    };
    /// Something that happens to the first connection of its kind that the client has sent so many bytes over, at that
    /// byte exactly.
    struct Trap {
        Traffic traffic = Traffic::any;
        int64_t bytes = 0; ///< from the client, counted from the connection's beginning or from the trap's, see `fresh`
        bool fresh = false; ///< counts from the beginning, and only connections made after the trap was set
        /// Nothing flows any more over the connection, which stays open; or how it ends.
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

    /// Connections are refused, or taken again, at the same port. Open ones stay.
    void refuse(bool refused);
    /// No byte flows in either direction and no connection ends; new ones are taken and wait.
    void stall(bool stalled);
    /// Nothing flows from the server to the client; the other way it does.
    void stallAnswers(bool stalled);
    /// Ends every connection.
    void cut(Ending ending);
    void set(Trap trap);
    void clearTrap();
    /// No fault any more; connections that a trap stalled flow again.
    void heal();

    [[nodiscard]] Counts counts() const;

private:
    class Worker;
    std::unique_ptr<Worker> m_worker;
};

} // namespace quillo::test
