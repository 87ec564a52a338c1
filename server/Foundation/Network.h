#pragma once

#include <string>

namespace quillo::server {

/// What stands for an address where attempts are counted: an IPv6 network of 64 bits is one customer.
std::string networkOf(const std::string& address);

} // namespace quillo::server
