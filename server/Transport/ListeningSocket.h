#pragma once

#include <optional>
#include <string>

namespace quillo::server {

/// A listening TCP socket, not blocking and closed on exec. Owned by the caller.
struct ListeningSocket {
    int descriptor = -1;
    bool isIPv6 = false;
};

/// Opens the socket given by `listen`: "ADDRESS:PORT", "[ADDRESS]:PORT", "localhost:PORT", or "fd:N" for an inherited
/// socket, which must listen already. Throws std::runtime_error with the cause and the next step.
ListeningSocket openListeningSocket(const std::string& listen);

/// "fd:3" when the service manager handed over one socket by the LISTEN_FDS protocol (sd_listen_fds(3)); empty when it
/// did not, or meant another process. Throws std::runtime_error when it handed over several.
std::optional<std::string> inheritedSocket();

} // namespace quillo::server
