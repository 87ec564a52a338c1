#include "Services/Network/NetworkMonitorService.h"

#include "Core/Log.h"

#include <vector>

namespace quillo {

struct NetworkMonitorService::State {
    bool serverIsLoopback = false;
    bool isStarted = false;
    // Until the monitor has reported, assume a connection: a request that fails is retried anyway, but one postponed
    // for no reason makes the user wait.
    bool isConnected = true;
    std::vector<AsyncStream<bool>::Sink> subscribers;

    void update(NetworkPathStatus status) {
        const bool satisfied = status == NetworkPathStatus::satisfied;
        const bool connected = satisfied || serverIsLoopback;
        appLog(QStringLiteral("🌐 Network %1 (status: %2%3)")
                   .arg(connected ? QStringLiteral("CONNECTED") : QStringLiteral("DISCONNECTED"),
                        satisfied ? QStringLiteral("satisfied") : QStringLiteral("unsatisfied"),
                        serverIsLoopback ? QStringLiteral(", the server is on this machine") : QString()),
               LogLevel::info, QStringLiteral("NetworkMonitor"));
        if (std::exchange(isConnected, connected) == connected)
            return;
        std::erase_if(subscribers, [connected](const auto& subscriber) { return !subscriber.yield(connected); });
    }
};

NetworkMonitorService::NetworkMonitorService(std::unique_ptr<NetworkPathMonitor> monitor, bool serverIsLoopback)
    : m_monitor(std::move(monitor)), m_state(std::make_shared<State>()) {
    m_state->serverIsLoopback = serverIsLoopback;
}

NetworkMonitorService::~NetworkMonitorService() {
    m_monitor->stop();
    for (const auto& subscriber : m_state->subscribers)
        subscriber.finish();
}

void NetworkMonitorService::startMonitoring() {
    if (std::exchange(m_state->isStarted, true))
        return;
    m_monitor->start([weak = std::weak_ptr(m_state)](NetworkPathStatus status) {
        EventExecutor::main().post([weak, status] {
            if (const auto state = weak.lock())
                state->update(status);
        });
    });
    appLog(QStringLiteral("🌐 Network monitor started"), LogLevel::info, QStringLiteral("NetworkMonitor"));
}

bool NetworkMonitorService::isConnected() const { return m_state->isConnected; }

AsyncStream<bool> NetworkMonitorService::connectivityStream() {
    auto [stream, sink] = AsyncStream<bool>::make(EventExecutor::main());
    m_state->subscribers.push_back(sink);
    return std::move(stream);
}

} // namespace quillo
