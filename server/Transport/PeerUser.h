#pragma once

#include "Transport/Asio.h"

#include <filesystem>
#include <sys/types.h>

namespace quillo::server {

enum class PeerOwner {
    user,    ///< the given user
    other,   ///< another one, a program on another machine, or one that has already closed its end
    unknown, ///< the kernel's tables cannot be read
};

/// Whether `user` owns the other end of a connection from `remote` to `local`, according to the kernel's tables of TCP
/// sockets in `tables` (proc(5), /proc/net/tcp and tcp6).
PeerOwner ownerOfPeer(const Tcp::endpoint& remote, const Tcp::endpoint& local, uid_t user,
                      const std::filesystem::path& tables = "/proc/net");

} // namespace quillo::server
