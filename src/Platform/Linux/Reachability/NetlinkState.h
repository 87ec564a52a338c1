#pragma once

#include "Platform/NetworkPath.h"

namespace quillo::netlink {

/// Asks the kernel for its interfaces, addresses and default routes, in the calling thread's network namespace. Throws
/// std::system_error when the kernel does not answer.
NetworkPathStatus currentStatus(NetworkReach reach);

} // namespace quillo::netlink
