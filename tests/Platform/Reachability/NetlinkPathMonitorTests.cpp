#include "Platform/Linux/Reachability/NetlinkPathMonitor.h"

#include "Support/Async.h"

#include <QProcess>

#include <atomic>
#include <sched.h>

using namespace quillo;
using namespace quillo::test;

namespace {

/// In a network namespace of its own, where a pair of virtual interfaces is all there is.
class NetlinkPathMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        if (::unshare(CLONE_NEWNET) != 0)
            GTEST_SKIP() << "a network namespace of its own needs the right to make one (run as root): "
                         << std::strerror(errno);
        if (!ip("link add left type veth peer name right"))
            GTEST_SKIP() << "this kernel makes no virtual interfaces, so there is no network to take away";
    }

    static bool ip(const char* arguments) {
        return QProcess::execute(u"ip"_qs, QString::fromLatin1(arguments).split(u' ')) == 0;
    }

    /// Runs the commands; true when the monitor then reports `expected`.
    testing::AssertionResult leadsTo(NetworkPathStatus expected, const std::vector<const char*>& commands) {
        for (const auto* const command : commands)
            if (!ip(command))
                return testing::AssertionFailure() << "ip " << command;
        if (!waitUntil([&] { return status == expected; }))
            return testing::AssertionFailure() << "no change after ip " << commands.back();
        return testing::AssertionSuccess();
    }

    std::atomic<NetworkPathStatus> status = NetworkPathStatus::satisfied;
    std::atomic<int> updates = 0;
};

TEST_F(NetlinkPathMonitorTest, SatisfiedMeansAnAddressAndADefaultRouteOverAnInterfaceThatIsUp) {
    using enum NetworkPathStatus;
    const auto monitor = createNetlinkPathMonitor();
    monitor->start([this](NetworkPathStatus now) {
        status = now;
        ++updates;
    });
    EXPECT_EQ(status, unsatisfied);
    EXPECT_EQ(updates, 1);
    std::atomic<NetworkPathStatus> local = satisfied;
    const auto inTheHouse = createNetlinkPathMonitor(NetworkReach::localNetwork);
    inTheHouse->start([&](NetworkPathStatus now) { local = now; });
    EXPECT_EQ(local, unsatisfied);
    EXPECT_TRUE(leadsTo(satisfied, {"link set lo up", "link set right up", "link set left up",
                                    "addr add 192.0.2.2/24 dev left", "route add default via 192.0.2.1"}));
    EXPECT_EQ(updates, 2) << "what leads to no other state is no update";
    EXPECT_TRUE(leadsTo(unsatisfied, {"route del default"}));
    EXPECT_EQ(local, satisfied) << "without a gateway";
    EXPECT_TRUE(leadsTo(satisfied, {"route add default via 192.0.2.1"}));
    EXPECT_TRUE(leadsTo(unsatisfied, {"link set right down"})); // the cable is pulled at the other end
    EXPECT_TRUE(leadsTo(satisfied, {"link set right up"}));
    EXPECT_TRUE(leadsTo(unsatisfied, {"addr flush dev left"}));
    EXPECT_TRUE(waitUntil([&] { return local == unsatisfied; }));
    inTheHouse->stop();
    EXPECT_TRUE(
        leadsTo(satisfied, {"-6 addr add 2001:db8::2/64 dev left nodad", "-6 route add default via 2001:db8::1"}));
    // A route that refuses leads nowhere.
    EXPECT_TRUE(leadsTo(unsatisfied, {"-6 route del default", "-6 route add unreachable default dev lo"}));
    monitor->stop();
    monitor->stop();
    ip("-6 route add default via 2001:db8::1 metric 1");
    EXPECT_EQ(status, unsatisfied);
}

} // namespace
