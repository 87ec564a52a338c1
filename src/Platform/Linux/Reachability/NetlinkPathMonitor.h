#pragma once

#include "Platform/NetworkPath.h"

#include <memory>

namespace quillo {

/// Watches the kernel's links, addresses and routes (rtnetlink(7)), so that it also works without a network manager.
///
/// Satisfied when an interface other than the loopback is up with a routable address and a default route leads over it,
/// in either family. With `NetworkReach::localNetwork` no route is needed. The thread is named
/// "com.quillo.network-monitor". `start` throws std::system_error when the kernel refuses the socket.
std::unique_ptr<NetworkPathMonitor> createNetlinkPathMonitor(NetworkReach reach = NetworkReach::internet);

} // namespace quillo
