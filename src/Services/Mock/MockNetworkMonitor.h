#pragma once

#include "Services/Network/NetworkMonitorServiceProtocol.h"

#include <vector>

namespace quillo {

/// A network that a test switches on and off; online at first. Main thread.
class MockNetworkMonitor final : public NetworkMonitorServiceProtocol {
public:
    bool isMonitoring = false;

    ~MockNetworkMonitor() override {
        for (const auto& subscriber : m_subscribers)
            subscriber.finish();
    }

    void startMonitoring() override { isMonitoring = true; }
    [[nodiscard]] bool isConnected() const override { return m_connected; }
    AsyncStream<bool> connectivityStream() override {
        auto [stream, sink] = AsyncStream<bool>::make(EventExecutor::main());
        m_subscribers.push_back(sink);
        return std::move(stream);
    }

    /// Changes the state, and returns when the subscribers have handled it.
    void setConnected(bool connected) {
        m_connected = connected;
        for (const auto& subscriber : m_subscribers)
            subscriber.yield(connected);
        EventExecutor::main().drain();
    }

private:
    bool m_connected = true;
    std::vector<AsyncStream<bool>::Sink> m_subscribers;
};

} // namespace quillo
