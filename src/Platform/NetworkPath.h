#pragma once

#include <functional>

namespace quillo {

/// Whether the machine has a way to other machines.
enum class NetworkPathStatus { unsatisfied, satisfied };

/// Watches the network. `start` may be called from any thread; updates arrive on a thread of the monitor's own.
class NetworkPathMonitor {
public:
    using Update = std::function<void(NetworkPathStatus)>;
    virtual ~NetworkPathMonitor() = default;
    /// Calls `update` with the present status before it returns, and on every change afterwards.
    virtual void start(Update update) = 0;
    virtual void stop() = 0;
};

} // namespace quillo
