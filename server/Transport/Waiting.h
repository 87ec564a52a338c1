#pragma once

#include "Transport/ConnectionContext.h"

#include <boost/asio/awaitable.hpp>

#include <optional>

namespace quillo::server {

/// Waits for a pending answer. Empty when the client has hung up. On the connection's strand.
asio::awaitable<std::optional<HttpResponse>> waitForAnswer(LaterResponse later,
                                                           std::shared_ptr<ConnectionContext> context,
                                                           std::shared_ptr<ConnectionControl> control);

/// Destroys a receiver, which may access the disk. On the connection's strand.
asio::awaitable<void> destroyBlocking(ConnectionContext& context, asio::any_io_executor strand,
                                      std::unique_ptr<BodyReceiver> receiver);

} // namespace quillo::server
