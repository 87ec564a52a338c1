#include "Transport/PeerUser.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace quillo::server {
namespace {

/// An address in the format of the tables: words of the machine's byte order, in hexadecimal.
template <size_t count>
std::string words(const std::array<unsigned char, count>& bytes) {
    std::string text;
    for (size_t i = 0; i < count; i += sizeof(uint32_t)) {
        uint32_t word = 0;
        std::memcpy(&word, bytes.data() + i, sizeof word);
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08X", word);
        text += digits;
    }
    return text;
}

std::string withPort(const std::string& address, const Tcp::endpoint& endpoint) {
    char port[6];
    std::snprintf(port, sizeof port, ":%04X", endpoint.port());
    return address + port;
}

bool isV4(const asio::ip::address& address) { return address.is_v4() || address.to_v6().is_v4_mapped(); }

std::string inTable4(const Tcp::endpoint& endpoint) {
    const auto& address = endpoint.address();
    const auto v4 = address.is_v4() ? address.to_v4() : asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
    return withPort(words(v4.to_bytes()), endpoint);
}

/// A socket of the newer family holds an address of the older one in mapped form.
std::string inTable6(const Tcp::endpoint& endpoint) {
    const auto& address = endpoint.address();
    const auto v6 = address.is_v6() ? address.to_v6() : asio::ip::make_address_v6(asio::ip::v4_mapped, address.to_v4());
    return withPort(words(v6.to_bytes()), endpoint);
}

/// The owner of the socket from `here` to `there`.
std::optional<uid_t> ownerIn(std::ifstream& table, const std::string& here, const std::string& there) {
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

} // namespace

PeerOwner ownerOfPeer(const Tcp::endpoint& remote, const Tcp::endpoint& local, uid_t user,
                      const std::filesystem::path& tables) {
    std::ifstream table4(tables / "tcp");
    std::ifstream table6(tables / "tcp6");
    const bool usesV4 = isV4(remote.address());
    // Without IPv6 in the kernel there is no second table.
    if (usesV4 ? !table4.is_open() : !table6.is_open())
        return PeerOwner::unknown;
    // Look for the peer's own socket, for which we are the remote end.
    auto owner = usesV4 ? ownerIn(table4, inTable4(remote), inTable4(local)) : std::nullopt;
    if (!owner)
        owner = ownerIn(table6, inTable6(remote), inTable6(local));
    return owner == user ? PeerOwner::user : PeerOwner::other;
}

} // namespace quillo::server
