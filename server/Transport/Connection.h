#pragma once

#include "Transport/ConnectionContext.h"

#include <boost/asio/awaitable.hpp>

namespace quillo::server {

/// Serves one accepted connection to its end. Runs on the strand that is the socket's executor. Never throws.
asio::awaitable<void> serveConnection(Tcp::socket socket, std::shared_ptr<ConnectionState> state);

/// HTTP, and streaming after an upgrade, plain and within TLS. They are compiled in separate files, because each is
/// costly.
asio::awaitable<void> servePlain(Tcp::socket socket, std::shared_ptr<ConnectionState> state);
asio::awaitable<void> serveTls(Tcp::socket socket, std::shared_ptr<ConnectionState> state);

} // namespace quillo::server
