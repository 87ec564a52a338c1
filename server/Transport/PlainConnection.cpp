#include "Transport/Connection.h"
#include "Transport/HttpConnection.h"

namespace quillo::server {

asio::awaitable<void> servePlain(Tcp::socket socket, std::shared_ptr<ConnectionState> state) {
    const ReleaseOnExit release(state->control);
    co_await serveRequests(socket, state);
}

} // namespace quillo::server
