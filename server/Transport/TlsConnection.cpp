#include "Transport/Asio.h"

#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "Transport/Connection.h"
#include "Transport/HttpConnection.h"

namespace quillo::server {

asio::awaitable<void> serveTls(Tcp::socket socket, std::shared_ptr<ConnectionState> state) {
    const auto tls = state->context->tls();
    asio::ssl::stream<Tcp::socket> stream(std::move(socket), *tls);
    const ReleaseOnExit release(state->control);
    boost::system::error_code error;
    co_await stream.async_handshake(asio::ssl::stream_base::server, asio::redirect_error(asio::use_awaitable, error));
    if (!error)
        co_await serveRequests(stream, state);
}

} // namespace quillo::server
