#include "Foundation/Network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>

namespace quillo::server {

std::string networkOf(const std::string& address) {
    in6_addr parsed{};
    if (::inet_pton(AF_INET6, address.substr(0, address.find('%')).c_str(), &parsed) != 1)
        return address;
    std::fill(std::begin(parsed.s6_addr) + 8, std::end(parsed.s6_addr), 0);
    char text[INET6_ADDRSTRLEN];
    return std::string(::inet_ntop(AF_INET6, &parsed, text, sizeof text)) + "/64";
}

} // namespace quillo::server
