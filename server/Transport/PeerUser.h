#pragma once

#include "Transport/Asio.h"

#include <optional>
#include <sys/types.h>

namespace quillo::server {

/// The user of this machine at the other end of a connection from `remote` to `local`, according to the kernel's table
/// of TCP sockets (proc(5), /proc/net/tcp). Empty for a peer on another machine, and for one that has already closed.
std::optional<uid_t> userOfPeer(const Tcp::endpoint& remote, const Tcp::endpoint& local);

} // namespace quillo::server
