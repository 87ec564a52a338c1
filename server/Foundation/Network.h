#pragma once

#include <string>

namespace quillo::server {

/// The key under which attempts of an address are counted: an IPv6 /64 network counts as one client.
std::string networkOf(const std::string& address);

} // namespace quillo::server
