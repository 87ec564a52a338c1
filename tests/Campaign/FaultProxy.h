#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

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
        int64_t bytes = 0; ///< from the client, counted from when the trap was set
        /// How the connection ends; without a value it stays open but transfers nothing more.
        std::optional<Ending> ending;
    };
    struct Counts {
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

    [[nodiscard]] uint16_t port() const { return m_port; }

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
    /// Removes all faults; connections stalled by a trap continue.
    void heal();

    [[nodiscard]] Counts counts();

private:
    struct Connection;
    struct Pipe;

    /// Runs `call` between two turns of the loop.
    void change(const std::function<void()>& call);
    void run();
    void listen();
    void accept();
    void serve(Connection& connection, short client, short server);
    void sendUp(Connection& connection);
    [[nodiscard]] bool flows(const Connection& connection) const;
    [[nodiscard]] short interest(const Connection& connection, bool isClient) const;
    [[nodiscard]] bool applies(const Connection& connection) const;

    const uint16_t m_serverPort;
    uint16_t m_port = 0;
    int m_listener = -1;
    int m_wakeup = -1;
    std::mutex m_mutex; ///< guards everything; the loop holds it except while it waits
    std::list<Connection> m_connections;
    std::optional<Trap> m_trap;
    Counts m_counts;
    std::chrono::milliseconds m_delay{0};
    bool m_isStalled = false;
    bool m_holdsAnswers = false;
    bool m_isStopping = false;
    std::thread m_thread;
};

} // namespace quillo::test
