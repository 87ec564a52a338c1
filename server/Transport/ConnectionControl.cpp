#include "Transport/ConnectionControl.h"

#include <boost/asio/post.hpp>

#include <netinet/tcp.h>
#include <sys/socket.h>

namespace quillo::server {

ConnectionControl::ConnectionControl(asio::any_io_executor strand, int socket)
    : m_strand(std::move(strand)), m_socket(socket), m_timer(m_strand) {}

void ConnectionControl::expireAt(Clock::time_point time, std::function<void()> expired) {
    m_deadline = time;
    m_expired = std::move(expired);
    if (m_socket >= 0 && (!m_armed || time < m_timer.expiry()))
        arm();
}

void ConnectionControl::expireAfter(std::chrono::milliseconds time, std::function<void()> expired) {
    expireAt(Clock::now() + time, std::move(expired));
}

void ConnectionControl::arm() {
    m_armed = true;
    m_timer.expires_at(m_deadline);
    m_timer.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        if (error || self->m_socket < 0)
            return;
        self->m_armed = false;
        if (Clock::now() < self->m_deadline) {
            self->arm();
        } else if (const auto expired = std::exchange(self->m_expired, nullptr)) {
            expired();
        } else {
            self->cut();
        }
    });
}

void ConnectionControl::cut() {
    if (m_socket < 0)
        return;
    // Close without lingering, so that no data for a peer that does not read stays in the kernel.
    const linger now{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::shutdown(m_socket, SHUT_RDWR);
}

bool ConnectionControl::peerHasClosed() const {
    tcp_info info{};
    socklen_t size = sizeof info;
    return m_socket < 0 || ::getsockopt(m_socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
           info.tcpi_state != TCP_ESTABLISHED;
}

void ConnectionControl::request(Request request) {
    asio::post(m_strand, [self = shared_from_this(), request] {
        // Copy the handler, because it may replace itself.
        if (const auto handler = self->m_handler)
            handler(request);
        else if (request == Request::stop)
            self->cut();
    });
}

void ConnectionControl::requestCut() {
    asio::post(m_strand, [self = shared_from_this()] { self->cut(); });
}

void ConnectionControl::release() {
    m_socket = -1;
    m_expired = nullptr;
    m_handler = nullptr;
    m_timer.cancel();
}

} // namespace quillo::server
