#pragma once

#include "Platform/NetworkPath.h"
#include "Services/Network/NetworkMonitorServiceProtocol.h"

#include <memory>

namespace quillo {

/// Whether the machine is online, from the reports of a path monitor. Main thread.
class NetworkMonitorService final : public NetworkMonitorServiceProtocol {
public:
    /// With `serverIsLoopback` the service always reports "connected": a server on this machine is reached without a
    /// network, and dictation must work offline.
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
