#include "Accounts/PasswordWorkers.h"
#include "Accounts/SignInThrottle.h"
#include "Foundation/Network.h"

#include <gtest/gtest.h>

#include <future>

using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

class Throttle : public testing::Test {
protected:
    std::optional<std::chrono::seconds> admit(const std::string& email, const std::string& address = "a") {
        return throttle.admit(email, address);
    }

    std::chrono::steady_clock::time_point now{};
    SignInThrottle throttle{[this] { return now; }, {3, 10s, 60s, 1h, 100}, {20, 10s, 60s, 1h, 100}};
};

TEST_F(Throttle, TheWaitDoublesUpToItsBoundAndEndsWithSuccess) {
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(admit("ann"));
    for (const auto wait : {10s, 20s, 40s, 60s, 60s}) {
        EXPECT_EQ(admit("ann"), wait);
        now += wait - 1s;
        EXPECT_EQ(admit("ann"), 1s) << "asking in vain makes it no longer";
        now += 1s;
        EXPECT_FALSE(admit("ann"));
    }
    EXPECT_TRUE(admit("ann"));
    EXPECT_FALSE(admit("bob"));
    throttle.succeeded("ann", "a");
    EXPECT_FALSE(admit("ann"));
    now += 1h;
    EXPECT_FALSE(admit("bob"));
    EXPECT_EQ(throttle.size(), 2U) << "what rested is forgotten";
}

TEST_F(Throttle, OwnSuccessesPayForNoGuessesAtOthers) {
    int guesses = 0;
    for (int round = 0; round < 50; ++round) {
        if (!admit("own", "x"))
            throttle.succeeded("own", "x");
        guesses += !admit("victim" + std::to_string(round), "x");
    }
    EXPECT_LE(guesses, 20);
}

TEST_F(Throttle, MemoryIsBounded) {
    for (int i = 0; i < 3; ++i)
        admit("locked", "locked");
    for (int i = 0; i < 10000; ++i)
        admit("email" + std::to_string(i), "address" + std::to_string(i));
    EXPECT_LE(throttle.size(), 200U);
}

TEST(ServerNetworks, ACustomerWithManyAddressesIsOne) {
    EXPECT_EQ(networkOf("192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(networkOf("2001:db8:1:2:3:4:5:6"), networkOf("2001:db8:1:2:ffff::1"));
    EXPECT_NE(networkOf("2001:db8:1:2::1"), networkOf("2001:db8:1:3::1"));
    EXPECT_EQ(networkOf("fe80::1%eth0"), networkOf("fe80::2%eth1"));
    EXPECT_EQ(networkOf("nonsense"), "nonsense");
}

/// Reports when the last copy of a job is destroyed.
struct Dropped {
    std::promise<void> promise;
    ~Dropped() { promise.set_value(); }
};

TEST(ServerPasswordWorkers, TakeNoMoreThanTheyMayAndDropWhatWaitsAtTheEnd) {
    std::promise<void> begun;
    std::promise<void> gate;
    std::atomic<int> done = 0;
    PasswordWorkers workers(1, 2);
    ASSERT_TRUE(workers.submit([&] {
        begun.set_value();
        gate.get_future().wait();
        ++done;
    }));
    begun.get_future().wait();
    auto held = std::make_shared<Dropped>();
    auto dropped = held->promise.get_future();
    EXPECT_TRUE(workers.submit([&done, held] { ++done; }));
    EXPECT_TRUE(workers.submit([&done, held] { ++done; }));
    EXPECT_FALSE(workers.submit([&done, held] { ++done; }));
    held.reset();
    std::thread stopping([&] { workers.stop(); });
    ASSERT_EQ(dropped.wait_for(20s), std::future_status::ready);
    gate.set_value();
    stopping.join();
    EXPECT_EQ(done.load(), 1) << "what was begun is finished";
    EXPECT_FALSE(workers.submit([] {}));
}

} // namespace
