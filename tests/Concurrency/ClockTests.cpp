#include "Concurrency/AsyncEvent.h"
#include "Concurrency/Clock.h"
#include "Support/Async.h"

#include <thread>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

Task<> note(Clock* clock, Clock::Duration delay, std::vector<int>* order, int id) {
    if (co_await clock->sleep(delay))
        order->push_back(id);
}

TEST(ManualClock, WakesSleepersInOrderOfTheirTime) {
    ManualClock clock(EventExecutor::main());
    std::vector<int> order;
    note(&clock, 7 * 24h, &order, 3);
    note(&clock, 12s, &order, 1);
    note(&clock, 30s, &order, 2);
    clock.advance(11s);
    EXPECT_TRUE(order.empty());
    clock.advance(20s);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    const auto before = clock.wallTime();
    clock.advance(7 * 24h);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(before.secsTo(clock.wallTime()), 7 * 24 * 3600);
    EXPECT_EQ(clock.pending(), 0U);
}

TEST(ManualClock, SleepersThatSleepAgainAreWokenWithinOneAdvance) {
    ManualClock clock(EventExecutor::main());
    int ticks = 0;
    const auto tick = [](Clock* c, int* count) -> Task<> {
        for (int i = 0; i < 10; ++i) {
            co_await c->sleep(1s);
            ++*count;
        }
    };
    tick(&clock, &ticks);
    clock.advance(5500ms);
    EXPECT_EQ(ticks, 5);
    clock.advance(1h);
    EXPECT_EQ(ticks, 10);
}

TEST(Clock, AStopFromAnotherThreadEndsASleepAtOnce) {
    SystemClock clock(EventExecutor::main());
    std::stop_source stop;
    std::jthread stopper([&] { stop.request_stop(); });
    EXPECT_FALSE(await(clock.sleep(1h, stop.get_token())));
}

TEST(AsyncEvent, WakesEveryWaiterAndTellsTimeoutFromEvent) {
    ManualClock clock(EventExecutor::main());
    AsyncEvent event;
    std::vector<bool> results;
    const auto waiter = [](AsyncEvent source, Clock* c, Clock::Duration limit, std::vector<bool>* out) -> Task<> {
        out->push_back(co_await source.wait(*c, limit));
    };
    waiter(event, &clock, 1s, &results);
    waiter(event, &clock, 10s, &results);
    clock.advance(2s);
    EXPECT_EQ(results, (std::vector<bool>{false}));
    event.set();
    clock.advance(0s);
    EXPECT_EQ(results, (std::vector<bool>{false, true}));
    waiter(event, &clock, 1s, &results);
    EXPECT_EQ(results.size(), 3U);
}

} // namespace
