#pragma once

#include "Concurrency/AsyncStream.h"

namespace quillo {

/// Whether the machine is online. Main thread.
class NetworkMonitorServiceProtocol {
public:
    virtual ~NetworkMonitorServiceProtocol() = default;

    virtual void startMonitoring() = 0;
    [[nodiscard]] virtual bool isConnected() const = 0;
    /// Yields every change of the state; each subscriber has its own.
    virtual AsyncStream<bool> connectivityStream() = 0;
};

} // namespace quillo
