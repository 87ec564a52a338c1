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

using Work = std::function<Task<ActionStream<CounterAction>>(CounterEffect)>;

/// A store in which no effect may fail.
CounterStore makeStore(Work work) {
    return {EventExecutor::main(), {}, reduce, std::move(work), [](const QString& task, const QString& error) {
                ADD_FAILURE() << task.toStdString() << ": " << error.toStdString();
            }};
}

/// Work that only notes the effect.
template <class Note>
Work noting(Note note) {
    return [note](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
        note(effect);
        co_return std::nullopt;
    };
}

/// Work whose first effect yields what the test puts into the sink; those after it, what `countdown` does.
struct FedWork {
    FedWork() {
        auto [stream, made] = AsyncStream<CounterAction>::make(EventExecutor::main());
        sink = made;
        *first = std::move(stream);
    }
    Work work() const {
        return [first = first](CounterEffect effect) -> Task<ActionStream<CounterAction>> {
            if (auto stream = std::exchange(*first, std::nullopt))
                co_return std::move(*stream);
            co_return co_await countdown(effect);
        };
    }
    std::shared_ptr<std::optional<AsyncStream<CounterAction>>> first =
        std::make_shared<std::optional<AsyncStream<CounterAction>>>();
    std::optional<AsyncStream<CounterAction>::Sink> sink;
};

bool ends(const CounterStore& store) {
    return waitUntil([&] { return store.activeTasks().empty(); });
}

TEST(Store, NotifiesOncePerDifferenceAndRunsTheEffectInAnyCase) {
    int effects = 0;
    auto store = makeStore(noting([&](const CounterEffect&) { ++effects; }));
    std::vector<std::pair<int, int>> changes;
    const auto observation = store.observe(
        [&](const Counter& before, const Counter& after) { changes.emplace_back(before.value, after.value); });
    store.send(Add{2});
    store.send(Add{0});
    store.send(Nothing{});
    EXPECT_EQ(changes, (std::vector<std::pair<int, int>>{{0, 2}}));
    EXPECT_EQ(effects, 0) << "an effect ran inside send";
    EXPECT_EQ(store.activeTasks().size(), 3U);
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(effects, 3);
}

TEST(Store, FedBackActionsAreReducedAgainstTheStateOfTheMoment) {
    auto store = makeStore(countdown);
    store.send(Countdown{2});
    store.send(Add{10});
    EXPECT_EQ(store.state().value, 10);
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(store.state().value, 12);
}

TEST(Store, AnEffectThatReplacesAnotherCutsOffWhatThatHasYieldedAlready) {
    const FedWork fed;
    auto store = makeStore(fed.work());
    store.send(Countdown{0});
    EventExecutor::main().drain();
    fed.sink->yield(Add{100});
    store.send(Countdown{3});
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(store.state().value, 3);
}

TEST(Store, ACancelledTaskForwardsNothingMore) {
    const FedWork fed;
    auto store = makeStore(fed.work());
    store.send(Nothing{});
    fed.sink->yield(Add{1});
    ASSERT_TRUE(waitUntil([&] { return store.state().value == 1; }));
    fed.sink->yield(Add{1});
    const auto tasks = store.activeTasks();
    for (const auto& [id, task] : tasks)
        task.cancel();
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(store.state().value, 1);
}

TEST(Store, ActionsYieldedAfterItsReleaseAreDropped) {
    const FedWork fed;
    std::optional<StreamTermination> ended;
    fed.sink->onTermination([&](StreamTermination reason) { ended = reason; });
    {
        auto store = makeStore(fed.work());
        store.send(Nothing{});
        ASSERT_TRUE(waitUntil([&] { return !*fed.first; }));
    }
    fed.sink->yield(Add{1});
    EXPECT_TRUE(waitUntil([&] { return ended.has_value(); }));
    EXPECT_FALSE(fed.sink->yield(Add{1}));
}

TEST(Store, WhatEscapesAnEffectIsReportedAndLeavesNoTask) {
    QString reported;
    CounterStore store(EventExecutor::main(), {}, reduce,
                       noting([](const CounterEffect&) { throw std::runtime_error("disk full"); }),
                       [&](const QString&, const QString& error) { reported = error; });
    store.send(Nothing{});
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(reported, u"disk full"_qs);
}

TEST(Store, ALateObserverSeesEachChangeOnceAndAfterTheEffectHasBegun) {
    QStringList order;
    auto store = makeStore(noting([&](const CounterEffect& effect) { order << u"effect %1"_qs.arg(effect.value); }));
    const auto observation = store.observeLater([&](const Counter& before, const Counter& after) {
        order << u"view %1 to %2"_qs.arg(before.value).arg(after.value);
    });
    for (const int amount : {1, 0, 2})
        store.send(Add{amount});
    EXPECT_TRUE(order.empty());
    EventExecutor::main().drain();
    EXPECT_EQ(order.join(u", "), u"effect 1, view 0 to 1, effect 1, effect 3, view 1 to 3");
}

TEST(Store, AnObserverMayRemoveItselfAndSendFromItsCall) {
    std::vector<int> effects;
    auto store = makeStore(noting([&](const CounterEffect& effect) { effects.push_back(effect.value); }));
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
    EXPECT_TRUE(ends(store));
    EXPECT_EQ(effects, (std::vector<int>{1, 2})) << "an effect overtook the one of an earlier action";
}

} // namespace
