#include "Concurrency/AsyncStream.h"
#include "Support/Async.h"

#include <thread>

using namespace quillo;
using namespace quillo::test;

namespace {

Task<std::vector<int>> collect(AsyncStream<int> stream, std::stop_token token = {}) {
    std::vector<int> all;
    while (const auto element = co_await stream.next(token))
        all.push_back(*element);
    co_return all;
}

TEST(AsyncStream, DeliversAMillionElementsOfAnotherThreadInOrder) {
    constexpr int count = 1'000'000;
    auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main());
    std::jthread producer([sink = sink] {
        for (int i = 0; i < count; ++i)
            sink.yield(i);
        sink.finish();
    });
    const auto consume = [](AsyncStream<int> source) -> Task<int> {
        int expected = 0;
        while (const auto element = co_await source.next()) {
            if (*element != expected)
                co_return -1;
            ++expected;
            // The consumer sometimes lags behind, so that the queue grows: nothing may be lost or repeated.
            if (expected % 100'000 == 0)
                std::this_thread::yield();
        }
        co_return expected;
    };
    EXPECT_EQ(await(consume(std::move(stream)), std::chrono::seconds(60)), count);
}

TEST(AsyncStream, LosesNothingOfConcurrentProducers) {
    constexpr int producers = 4;
    constexpr int each = 20'000;
    auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main());
    std::atomic<int> running = producers;
    std::vector<std::jthread> threads;
    for (int p = 0; p < producers; ++p)
        threads.emplace_back([sink = sink, &running, p] {
            for (int i = 0; i < each; ++i)
                sink.yield(p * each + i);
            if (--running == 0)
                sink.finish();
        });
    auto all = await(collect(std::move(stream)), std::chrono::seconds(60));
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), size_t{producers * each});
    for (int i = 0; i < producers * each; ++i)
        ASSERT_EQ(all[static_cast<size_t>(i)], i);
}

TEST(AsyncStream, EndsOnceWhenAStopRaceswithTheProducer) {
    for (int round = 0; round < 200; ++round) {
        auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main());
        std::atomic<int> terminations = 0;
        sink.onTermination([&](StreamTermination) { ++terminations; });
        std::stop_source stop;
        std::jthread producer([sink = sink] {
            for (int i = 0; sink.yield(i) && i < 5000; ++i) {
            }
        });
        std::jthread stopper([&] { stop.request_stop(); });
        await(collect(std::move(stream), stop.get_token()));
        producer.join();
        EXPECT_EQ(terminations, 1);
        EXPECT_FALSE(sink.yield(0));
    }
}

TEST(AsyncStream, ConsumerIsResumedByAPostedCallNeverInline) {
    auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main());
    int received = 0;
    const auto consume = [](AsyncStream<int> source, int* count) -> Task<> {
        while (co_await source.next())
            ++*count;
    };
    auto task = consume(std::move(stream), &received);
    sink.yield(1);
    EXPECT_EQ(received, 0);
    sink.finish();
    await(std::move(task));
    EXPECT_EQ(received, 1);
}

TEST(AsyncStream, FailureComesAfterWhatIsQueued) {
    auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main());
    sink.yield(7);
    sink.fail(std::make_exception_ptr(std::runtime_error("device lost")));
    EXPECT_EQ(await([](AsyncStream<int>* s) -> Task<int> { co_return *co_await s->next(); }(&stream)), 7);
    EXPECT_THROW(await(collect(std::move(stream))), std::runtime_error);
}

TEST(AsyncStream, ALimitDropsTheOldest) {
    auto [stream, sink] = AsyncStream<int>::make(EventExecutor::main(), 3);
    for (int i = 0; i < 10; ++i)
        sink.yield(i);
    sink.finish();
    EXPECT_EQ(await(collect(std::move(stream))), (std::vector<int>{7, 8, 9}));
    EXPECT_EQ(sink.dropped(), 7U);
}

TEST(AsyncStream, DroppingTheConsumerTellsTheProducer) {
    std::optional<StreamTermination> reason;
    auto pair = std::make_unique<std::pair<AsyncStream<int>, AsyncStream<int>::Sink>>(
        AsyncStream<int>::make(EventExecutor::main()));
    const auto sink = pair->second;
    sink.onTermination([&](StreamTermination why) { reason = why; });
    pair.reset();
    EXPECT_EQ(reason, StreamTermination::cancelled);
    EXPECT_FALSE(sink.yield(1));
}

} // namespace
