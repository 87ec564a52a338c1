#include "Transport/ConnectionControl.h"

#include <boost/asio/post.hpp>

#include <netinet/tcp.h>
#include <sys/socket.h>

namespace quillo::server {

ConnectionControl::ConnectionControl(asio::any_io_executor strand, int socket)
    : strand_(std::move(strand)), socket_(socket), timer_(strand_) {}

void ConnectionControl::expireAt(Clock::time_point time, std::function<void()> expired) {
    deadline_ = time;
    expired_ = std::move(expired);
    if (socket_ >= 0 && (!armed_ || time < timer_.expiry()))
        arm();
}

void ConnectionControl::expireAfter(std::chrono::milliseconds time, std::function<void()> expired) {
    expireAt(Clock::now() + time, std::move(expired));
}

void ConnectionControl::arm() {
    armed_ = true;
    timer_.expires_at(deadline_);
    timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        if (error || self->socket_ < 0)
            return;
        self->armed_ = false;
        if (Clock::now() < self->deadline_) {
            self->arm();
        } else if (const auto expired = std::exchange(self->expired_, nullptr)) {
            expired();
        } else {
            self->cut();
        }
    });
}

void ConnectionControl::cut() {
    if (socket_ < 0)
        return;
    // Without lingering, so that a peer that does not read leaves no data behind in the kernel.
    const linger now{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::shutdown(socket_, SHUT_RDWR);
}

bool ConnectionControl::peerHasClosed() const {
    tcp_info info{};
    socklen_t size = sizeof info;
    return socket_ < 0 || ::getsockopt(socket_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
           info.tcpi_state != TCP_ESTABLISHED;
}

void ConnectionControl::requestStop() {
    asio::post(strand_, [self = shared_from_this()] {
        if (const auto stop = std::exchange(self->stop_, nullptr))
            stop();
        else
            self->cut();
    });
}

void ConnectionControl::requestCut() {
    asio::post(strand_, [self = shared_from_this()] { self->cut(); });
}

void ConnectionControl::release() {
    socket_ = -1;
    expired_ = nullptr;
    stop_ = nullptr;
    timer_.cancel();
}

} // namespace quillo::server
