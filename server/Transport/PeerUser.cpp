#include "Transport/PeerUser.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace quillo::server {
namespace {

/// An endpoint in the format of the table: the address in words of the machine's byte order, and the port, in
/// hexadecimal.
std::string tableForm(const Tcp::endpoint& endpoint) {
    std::string text;
    const auto append = [&text](const unsigned char* bytes, size_t count) {
        for (size_t i = 0; i < count; i += sizeof(uint32_t)) {
            uint32_t word = 0;
            std::memcpy(&word, bytes + i, sizeof word);
            char digits[9];
            std::snprintf(digits, sizeof digits, "%08X", word);
            text += digits;
        }
    };
    if (endpoint.address().is_v4()) {
        const auto bytes = endpoint.address().to_v4().to_bytes();
        append(bytes.data(), bytes.size());
    } else {
        const auto bytes = endpoint.address().to_v6().to_bytes();
        append(bytes.data(), bytes.size());
    }
    char port[6];
    std::snprintf(port, sizeof port, ":%04X", endpoint.port());
    return text + port;
}

Tcp::endpoint unmapped(const Tcp::endpoint& endpoint) {
    return {asio::ip::make_address_v4(asio::ip::v4_mapped, endpoint.address().to_v6()), endpoint.port()};
}

} // namespace

std::optional<uid_t> userOfPeer(const Tcp::endpoint& remote, const Tcp::endpoint& local) {
    if (remote.address().is_v6() && remote.address().to_v6().is_v4_mapped())
        return userOfPeer(unmapped(remote), unmapped(local));
    // Look for the peer's own socket, for which we are the remote end.
    const std::string here = tableForm(remote);
    const std::string there = tableForm(local);
    std::ifstream table(remote.address().is_v4() ? "/proc/net/tcp" : "/proc/net/tcp6");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string number, from, to, state, queues, timer, retransmissions;
        uid_t user = 0;
        if (fields >> number >> from >> to >> state >> queues >> timer >> retransmissions >> user && from == here &&
            to == there)
            return user;
    }
    return std::nullopt;
}

} // namespace quillo::server
