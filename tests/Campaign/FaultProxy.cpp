#include "FaultProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace quillo::test {

namespace {

constexpr size_t bufferSize = 65'536;
constexpr char tlsHandshake = 0x16;

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

} // namespace

/// Bytes read from one end and not yet written to the other.
struct FaultProxy::Pipe {
    std::string buffer;
    bool ended = false;  ///< the reading end was closed by its peer
    bool passed = false; ///< and the writing end has been closed too
};

struct FaultProxy::Connection {
    int client = -1;
    int server = -1;
    Pipe up;
    Pipe down;
    int64_t bytesUp = 0; ///< forwarded to the server
    int64_t trapBase = 0;
    bool isTls = false;
    bool known = false;   ///< the first byte has shown what it carries
    bool stalled = false; ///< by a trap
    bool dead = false;

    void receive(int socket, Pipe& pipe);
    int64_t send(int socket, Pipe& pipe, size_t limit);
    void close(Ending ending);
};

void FaultProxy::Connection::receive(int socket, Pipe& pipe) {
    if (pipe.ended || pipe.buffer.size() >= bufferSize)
        return;
    char data[bufferSize];
    const auto count = ::recv(socket, data, bufferSize - pipe.buffer.size(), MSG_DONTWAIT);
    if (count > 0)
        pipe.buffer.append(data, static_cast<size_t>(count));
    else if (count == 0)
        pipe.ended = true;
    else if (errno != EAGAIN && errno != EINTR)
        close(Ending::reset);
}

/// Sends up to `limit` bytes and passes on the end of the stream behind the last one; returns how many were sent.
int64_t FaultProxy::Connection::send(int socket, Pipe& pipe, size_t limit) {
    ssize_t count = 0;
    if (limit > 0) {
        count = ::send(socket, pipe.buffer.data(), limit, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            if (errno != EAGAIN && errno != EINTR)
                close(Ending::reset);
            return 0;
        }
        pipe.buffer.erase(0, static_cast<size_t>(count));
    }
    if (pipe.ended && pipe.buffer.empty() && !pipe.passed) {
        ::shutdown(socket, SHUT_WR);
        pipe.passed = true;
    }
    return count;
}

void FaultProxy::Connection::close(Ending ending) {
    if (dead)
        return;
    dead = true;
    const linger now{1, 0};
    for (const int socket : {client, server}) {
        if (ending == Ending::reset)
            ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        ::close(socket);
    }
}

FaultProxy::FaultProxy(uint16_t serverPort) : m_serverPort(serverPort) {
    listen();
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = ntohs(address.sin_port);
    m_wakeup = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_thread = std::thread([this] { run(); });
}

FaultProxy::~FaultProxy() {
    change([this] { m_isStopping = true; });
    m_thread.join();
    for (auto& connection : m_connections)
        connection.close(Ending::reset);
    if (m_listener >= 0)
        ::close(m_listener);
    ::close(m_wakeup);
}

/// Listens on the port that it has, or on any free one.
void FaultProxy::listen() {
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int yes = 1;
    ::setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const auto address = loopback(m_port);
    if (::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener, 64) != 0)
        throw std::system_error(errno, std::generic_category(), "the proxy cannot listen");
}

void FaultProxy::change(const std::function<void()>& call) {
    const std::scoped_lock lock(m_mutex);
    call();
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_wakeup, &one, sizeof one);
}

void FaultProxy::refuse(bool refused) {
    change([&] {
        if (refused && m_listener >= 0) {
            // Shut down first: the loop waits on the socket, and closing alone would leave it open for a moment.
            ::shutdown(m_listener, SHUT_RDWR);
            ::close(std::exchange(m_listener, -1));
        } else if (!refused && m_listener < 0)
            listen();
    });
}

void FaultProxy::stall(bool stalled) {
    change([&] { m_isStalled = stalled; });
}

void FaultProxy::stallAnswers(bool stalled) {
    change([&] { m_holdsAnswers = stalled; });
}

void FaultProxy::delay(std::chrono::milliseconds time) {
    change([&] { m_delay = time; });
}

void FaultProxy::cut(Ending ending) {
    change([&] {
        for (auto& connection : m_connections)
            connection.close(ending);
    });
}

void FaultProxy::set(Trap trap) {
    change([&] {
        m_trap = trap;
        for (auto& connection : m_connections)
            connection.trapBase = connection.bytesUp;
    });
}

void FaultProxy::heal() {
    refuse(false);
    change([&] {
        m_isStalled = m_holdsAnswers = false;
        m_trap.reset();
        for (auto& connection : m_connections)
            connection.stalled = false;
    });
}

FaultProxy::Counts FaultProxy::counts() {
    const std::scoped_lock lock(m_mutex);
    auto result = m_counts;
    result.open = std::ranges::count_if(m_connections, [](const auto& connection) { return !connection.dead; });
    return result;
}

bool FaultProxy::flows(const Connection& connection) const { return !m_isStalled && !connection.stalled; }

/// Whether the trap is meant for what the connection carries.
bool FaultProxy::applies(const Connection& connection) const {
    return m_trap && connection.known &&
           (m_trap->traffic == Traffic::any || (m_trap->traffic == Traffic::tls) == connection.isTls);
}

void FaultProxy::run() {
    std::vector<pollfd> descriptors;
    std::unique_lock lock(m_mutex);
    while (!m_isStopping) {
        m_connections.remove_if([](const auto& connection) { return connection.dead; });
        descriptors.assign({{m_wakeup, POLLIN, 0}, {m_listener, POLLIN, 0}});
        for (const auto& connection : m_connections) {
            for (const bool isClient : {true, false}) {
                // Leave out a socket without requested events: poll would report its hang-up over and over.
                const auto events = interest(connection, isClient);
                descriptors.push_back({!events ? -1 : isClient ? connection.client : connection.server, events, 0});
            }
        }
        lock.unlock();
        ::poll(descriptors.data(), descriptors.size(), -1);
        lock.lock();
        if (const auto pause = m_delay; pause.count() > 0) {
            lock.unlock();
            ::poll(nullptr, 0, static_cast<int>(pause.count()));
            lock.lock();
        }
        uint64_t ignored = 0;
        [[maybe_unused]] const auto drained = ::read(m_wakeup, &ignored, sizeof ignored);
        // The list has not changed since, because only this thread modifies it.
        size_t i = 2;
        for (auto& connection : m_connections) {
            const auto client = descriptors[i++].revents;
            const auto server = descriptors[i++].revents;
            if (!connection.dead && flows(connection))
                serve(connection, client, server);
        }
        if (m_listener >= 0 && descriptors[1].fd == m_listener && descriptors[1].revents)
            accept();
    }
}

short FaultProxy::interest(const Connection& connection, bool isClient) const {
    if (!flows(connection))
        return 0;
    const auto& in = isClient ? connection.up : connection.down;
    const auto& out = isClient ? connection.down : connection.up;
    short events = 0;
    if (!in.ended && in.buffer.size() < bufferSize && (isClient || !m_holdsAnswers))
        events |= POLLIN;
    if (!out.buffer.empty() && (!isClient || !m_holdsAnswers))
        events |= POLLOUT;
    return events;
}

void FaultProxy::accept() {
    const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0)
        return;
    auto& connection = m_connections.emplace_back();
    connection.client = client;
    connection.server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto address = loopback(m_serverPort);
    if (::connect(connection.server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        connection.close(Ending::reset);
        return;
    }
    const int yes = 1;
    for (const int socket : {connection.client, connection.server})
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

void FaultProxy::serve(Connection& connection, short client, short server) {
    if (client & (POLLIN | POLLHUP | POLLERR))
        connection.receive(connection.client, connection.up);
    if (!connection.dead && !m_holdsAnswers && (server & (POLLIN | POLLHUP | POLLERR)))
        connection.receive(connection.server, connection.down);
    if (!connection.dead)
        sendUp(connection);
    if (!connection.dead && flows(connection) && !m_holdsAnswers)
        m_counts.bytesDown += connection.send(connection.client, connection.down, connection.down.buffer.size());
    if (!connection.dead && connection.up.passed && connection.down.passed)
        connection.close(Ending::finish);
}

void FaultProxy::sendUp(Connection& connection) {
    if (!connection.known && !connection.up.buffer.empty()) {
        connection.known = true;
        connection.isTls = connection.up.buffer.front() == tlsHandshake;
    }
    auto limit = connection.up.buffer.size();
    bool trapped = false;
    if (applies(connection)) {
        const auto left = connection.trapBase + m_trap->bytes - connection.bytesUp;
        trapped = left <= static_cast<int64_t>(limit);
        limit = std::min(limit, static_cast<size_t>(std::max<int64_t>(left, 0)));
    }
    const auto sent = connection.send(connection.server, connection.up, limit);
    connection.bytesUp += sent;
    m_counts.bytesUp += sent;
    if (!trapped || connection.dead || connection.bytesUp < connection.trapBase + m_trap->bytes)
        return;
    ++m_counts.trapped;
    if (m_trap->ending)
        connection.close(*m_trap->ending);
    else
        connection.stalled = true;
    m_trap.reset();
}

} // namespace quillo::test
