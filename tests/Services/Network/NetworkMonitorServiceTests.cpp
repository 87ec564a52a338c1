#include "Services/Network/NetworkMonitorService.h"

#include "Support/Async.h"
#include "Support/LogLines.h"

#include <thread>

using namespace quillo;
using namespace quillo::test;

namespace {

/// A network that a test turns on and off, from a thread of its own as a real monitor does.
class ScriptedPath final : public NetworkPathMonitor {
public:
    explicit ScriptedPath(Update& update, NetworkPathStatus first) : m_update(update), m_first(first) {}
    void start(Update update) override {
        m_update = std::move(update);
        m_update(m_first);
    }
    void stop() override { m_update = nullptr; }

private:
    Update& m_update;
    NetworkPathStatus m_first;
};

class NetworkMonitorServiceTest : public testing::Test {
protected:
    std::unique_ptr<NetworkMonitorService> make(NetworkPathStatus first, bool serverIsLoopback = false) {
        return std::make_unique<NetworkMonitorService>(std::make_unique<ScriptedPath>(update, first), serverIsLoopback);
    }
    void report(NetworkPathStatus status) {
        std::thread([this, status] { update(status); }).join();
        EventExecutor::main().drain();
    }
    static std::vector<bool> taken(AsyncStream<bool> stream) {
        return await([](AsyncStream<bool> ended) -> Task<std::vector<bool>> {
            std::vector<bool> values;
            while (const auto value = co_await ended.next())
                values.push_back(*value);
            co_return values;
        }(std::move(stream)));
    }

    LogLines log;
    NetworkPathMonitor::Update update;
};

TEST_F(NetworkMonitorServiceTest, EverySubscriberSeesEveryChange) {
    auto service = make(NetworkPathStatus::satisfied);
    service->startMonitoring();
    service->startMonitoring();
    auto first = service->connectivityStream();
    service->connectivityStream().cancel();
    report(NetworkPathStatus::satisfied);
    report(NetworkPathStatus::unsatisfied);
    EXPECT_FALSE(service->isConnected());
    auto second = service->connectivityStream();
    report(NetworkPathStatus::unsatisfied);
    report(NetworkPathStatus::satisfied);
    EXPECT_TRUE(service->isConnected());
    service.reset();
    EXPECT_EQ(taken(std::move(first)), (std::vector{false, true}));
    EXPECT_EQ(taken(std::move(second)), (std::vector{true}));
    EXPECT_EQ(log.count("🌐 Network monitor started"), 1);
    EXPECT_EQ(log.count("DISCONNECTED (status: unsatisfied)"), 2);
}

TEST_F(NetworkMonitorServiceTest, AServerOnThisMachineNeedsNoNetwork) {
    auto service = make(NetworkPathStatus::unsatisfied, true);
    service->startMonitoring();
    auto changes = service->connectivityStream();
    report(NetworkPathStatus::unsatisfied);
    EXPECT_TRUE(service->isConnected());
    service.reset();
    EXPECT_TRUE(taken(std::move(changes)).empty());
}

TEST_F(NetworkMonitorServiceTest, StartingOfflineIsAChange) {
    auto service = make(NetworkPathStatus::unsatisfied);
    auto changes = service->connectivityStream();
    service->startMonitoring();
    EventExecutor::main().drain();
    EXPECT_FALSE(service->isConnected());
    service.reset();
    EXPECT_EQ(taken(std::move(changes)), (std::vector{false}));
}

} // namespace
