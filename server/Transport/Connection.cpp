#include "Transport/Connection.h"

#include "Foundation/Log.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <sys/socket.h>

namespace quillo::server {
namespace {

/// The first byte of a TLS record that begins a handshake (RFC 8446 section 5.1); no HTTP request starts with it.
constexpr unsigned char tlsHandshake = 0x16;

/// Waits for the first byte and leaves it in the socket; empty when the peer has disconnected.
asio::awaitable<std::optional<unsigned char>> peekFirstByte(Tcp::socket& socket) {
    for (;;) {
        boost::system::error_code error;
        co_await socket.async_wait(Tcp::socket::wait_read, asio::redirect_error(asio::use_awaitable, error));
        if (error)
            co_return std::nullopt;
        unsigned char byte = 0;
        const auto count = ::recv(socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        if (count == 1)
            co_return byte;
        if (count == 0 || (errno != EAGAIN && errno != EINTR))
            co_return std::nullopt;
    }
}

} // namespace

asio::awaitable<void> serveConnection(Tcp::socket socket, std::shared_ptr<ConnectionState> state) {
    try {
        state->control->expireAfter(state->context->options.requestTimeout);
        const auto first = co_await peekFirstByte(socket);
        if (first) {
            state->peer.isEncrypted = *first == tlsHandshake;
            if (state->peer.isEncrypted)
                co_await serveTls(std::move(socket), state);
            else
                co_await servePlain(std::move(socket), state);
        }
    } catch (const std::exception& error) {
        log(LogLevel::error, "connection", std::string("ended by a failure: ") + error.what());
    }
    state->control->release();
}

} // namespace quillo::server
