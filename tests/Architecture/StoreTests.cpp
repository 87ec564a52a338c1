#include "Architecture/Store.h"
#include "Concurrency/Clock.h"
#include "Support/Async.h"

using namespace quillo;
using namespace quillo::test;

namespace {

struct Counter {
    int value = 0;
    bool operator==(const Counter&) const = default;
};

struct Add {
    int amount = 0;
};
struct Nothing {};
struct Countdown {
    int from = 0;
};
using CounterAction = std::variant<Add, Nothing, Countdown>;
/// Every action is work here, and a countdown replaces the one that runs.
struct CounterEffect {
    CounterAction action;
    int value = 0; ///< of the state right after the action
};
EffectIdentity effectIdentity(const CounterEffect& effect) {
    if (std::holds_alternative<Countdown>(effect.action))
        return {.name = "countdown", .id = "countdown", .cancelsInFlight = true};
    return {};
}
using CounterStore = Store<Counter, CounterAction, CounterEffect>;

Reduction<Counter, CounterEffect> reduce(const Counter& counter, const CounterAction& action) {
    const auto* add = std::get_if<Add>(&action);
    const int value = counter.value + (add ? add->amount : 0);
    return {Counter{value}, CounterEffect{action, value}};
}

/// `Countdown` feeds back that many `Add{1}`; everything else leads to nothing.
Task<ActionStream<CounterAction>> countdown(CounterEffect effect) {
    const auto* start = std::get_if<Countdown>(&effect.action);
    if (!start)
        co_return std::nullopt;
    co_return AsyncStream<CounterAction>::of(EventExecutor::main(),
                                             std::deque<CounterAction>(static_cast<size_t>(start->from), Add{1}));
}

void fail(const QString& task, const QString& error) {
    ADD_FAILURE() << task.toStdString() << ": " << error.toStdString();
}

TEST(Store, NotifiesOncePerDifferenceAndRunsTheEffectInAnyCase) {
    int effects = 0;
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [&](CounterEffect) -> Task<ActionStream<CounterAction>> {
            ++effects;
            co_return std::nullopt;
        },
        fail);
    std::vector<std::pair<int, int>> changes;
    const auto observation = store.observe(
        [&](const Counter& before, const Counter& after) { changes.emplace_back(before.value, after.value); });
    store.send(Add{2});
    store.send(Add{0});
    store.send(Nothing{});
    EXPECT_EQ(changes, (std::vector<std::pair<int, int>>{{0, 2}}));
    EXPECT_EQ(effects, 0) << "an effect ran inside send";
    EXPECT_EQ(store.activeTasks().size(), 3U);
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(effects, 3);
}

TEST(Store, FedBackActionsAreReducedAgainstTheStateOfTheMoment) {
    CounterStore store(EventExecutor::main(), {}, reduce, countdown, fail);
    store.send(Countdown{2});
    store.send(Add{10});
    EXPECT_EQ(store.state().value, 10);
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(store.state().value, 12);
}

TEST(Store, AnEffectThatReplacesAnotherCutsOffWhatThatHasYieldedAlready) {
    auto [stream, sink] = AsyncStream<CounterAction>::make(EventExecutor::main());
    auto shared = std::make_shared<AsyncStream<CounterAction>>(std::move(stream));
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [shared](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
            const auto* start = std::get_if<Countdown>(&effect.action);
            if (start && start->from == 0)
                co_return std::move(*shared);
            co_return co_await countdown(effect);
        },
        fail);
    store.send(Countdown{0});
    EventExecutor::main().drain();
    sink.yield(Add{100});
    store.send(Countdown{3});
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(store.state().value, 3);
}

TEST(Store, ACancelledTaskForwardsNothingMore) {
    auto [stream, sink] = AsyncStream<CounterAction>::make(EventExecutor::main());
    auto shared = std::make_shared<AsyncStream<CounterAction>>(std::move(stream));
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [shared](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
            if (std::holds_alternative<Nothing>(effect.action))
                co_return std::move(*shared);
            co_return std::nullopt;
        },
        fail);
    store.send(Nothing{});
    sink.yield(Add{1});
    ASSERT_TRUE(waitUntil([&] { return store.state().value == 1; }));
    sink.yield(Add{1});
    const auto tasks = store.activeTasks();
    for (const auto& [id, task] : tasks)
        task.cancel();
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(store.state().value, 1);
}

TEST(Store, ActionsYieldedAfterItsReleaseAreDropped) {
    auto [stream, sink] = AsyncStream<CounterAction>::make(EventExecutor::main());
    auto shared = std::make_shared<AsyncStream<CounterAction>>(std::move(stream));
    bool started = false;
    auto store = std::make_unique<CounterStore>(
        EventExecutor::main(), Counter{}, reduce,
        [&started, shared](CounterEffect) -> Task<ActionStream<CounterAction>> {
            started = true;
            co_return std::move(*shared);
        },
        fail);
    store->send(Nothing{});
    ASSERT_TRUE(waitUntil([&] { return started; }));
    std::optional<StreamTermination> ended;
    sink.onTermination([&](StreamTermination reason) { ended = reason; });
    store.reset();
    sink.yield(Add{1});
    EXPECT_TRUE(waitUntil([&] { return ended.has_value(); }));
    EXPECT_FALSE(sink.yield(Add{1}));
}

TEST(Store, WhatEscapesAnEffectIsReportedAndLeavesNoTask) {
    QString reported;
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [](CounterEffect) -> Task<ActionStream<CounterAction>> {
            throw std::runtime_error("disk full");
            co_return std::nullopt;
        },
        [&](const QString&, const QString& error) { reported = error; });
    store.send(Nothing{});
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(reported, QStringLiteral("disk full"));
}

TEST(Store, ALateObserverSeesEachChangeOnceAndAfterTheEffectHasBegun) {
    std::vector<QString> order;
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [&](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
            order.push_back(QStringLiteral("effect %1").arg(effect.value));
            co_return std::nullopt;
        },
        fail);
    const auto observation = store.observeLater([&](const Counter& before, const Counter& after) {
        order.push_back(QStringLiteral("view %1 to %2").arg(before.value).arg(after.value));
    });
    store.send(Add{1});
    store.send(Add{0});
    store.send(Add{2});
    EXPECT_TRUE(order.empty());
    EventExecutor::main().drain();
    EXPECT_EQ(order, (std::vector<QString>{QStringLiteral("effect 1"), QStringLiteral("view 0 to 1"),
                                           QStringLiteral("effect 1"), QStringLiteral("effect 3"),
                                           QStringLiteral("view 1 to 3")}));
}

TEST(Store, AnObserverMayRemoveItselfAndSendFromItsCall) {
    std::vector<int> effects;
    CounterStore store(
        EventExecutor::main(), {}, reduce,
        [&](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
            effects.push_back(effect.value);
            co_return std::nullopt;
        },
        fail);
    Observation once;
    int calls = 0;
    once = store.observe([&](const Counter&, const Counter&) {
        ++calls;
        once.reset();
        store.send(Add{1});
    });
    store.send(Add{1});
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(store.state().value, 2);
    EXPECT_TRUE(waitUntil([&] { return store.activeTasks().empty(); }));
    EXPECT_EQ(effects, (std::vector<int>{1, 2})) << "an effect overtook the one of an earlier action";
}

} // namespace
