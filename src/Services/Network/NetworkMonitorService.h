#pragma once

#include "Platform/NetworkPath.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"

#include <memory>

namespace quillo {

/// Keeps whether the machine is online, from the reports of a path monitor. Main thread.
class NetworkMonitorService final : public NetworkMonitorServiceProtocol {
public:
    /// With `serverIsLoopback` the service reports "connected" whatever the network does: the way to a server on this
    /// machine leads through no network, and somebody offline must be able to dictate.
    NetworkMonitorService(std::unique_ptr<NetworkPathMonitor> monitor, bool serverIsLoopback);
    ~NetworkMonitorService() override;

    void startMonitoring() override;
    [[nodiscard]] bool isConnected() const override;
    AsyncStream<bool> connectivityStream() override;

private:
    struct State;
    std::unique_ptr<NetworkPathMonitor> m_monitor;
    std::shared_ptr<State> m_state;
};

} // namespace quillo
