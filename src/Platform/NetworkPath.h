#pragma once

#include <functional>

namespace quillo {

/// Whether the machine has a route to other machines.
enum class NetworkPathStatus { unsatisfied, satisfied };

/// How far the way has to lead.
enum class NetworkReach {
    internet,     ///< to any machine: a default route is needed
    localNetwork, ///< to those of the same network: an address is enough
};

/// Watches the network. `start` may be called from any thread; updates arrive on the monitor's own thread.
class NetworkPathMonitor {
public:
    using Update = std::function<void(NetworkPathStatus)>;
    virtual ~NetworkPathMonitor() = default;
    /// Calls `update` with the current status before returning, and on every change afterwards.
    virtual void start(Update update) = 0;
    virtual void stop() = 0;
};

} // namespace quillo
