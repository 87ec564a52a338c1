#pragma once

#include "Architecture/Observation.h"
#include "Architecture/Reducer.h"
#include "Architecture/SideEffect.h"
#include "Concurrency/TaskRunner.h"

#include <QHash>
#include <QUuid>

#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

namespace quillo {

/// Holds the state of a feature: every change goes through a pure reducer, all other work runs as side effects that
/// report back by sending further actions. Main thread only.
template <std::equality_comparable State, class Action, class Effect>
class Store {
public:
    using ReduceFunction = std::function<Reduction<State, Effect>(const State&, const Action&)>;
    using EffectFunction = std::function<Task<ActionStream<Action>>(Effect)>;
    /// Called once per assignment that differs, with the state before and after it.
    using Observer = std::function<void(const State& before, const State& after)>;

    /// `report` receives what escapes a side effect. Without `sideEffects` the store only reduces.
    Store(Executor& mainExecutor, State initialState, ReduceFunction reducer, EffectFunction sideEffects,
          TaskRunner::Report report)
        : m_self(std::make_shared<Self>(Self{this, &mainExecutor})), m_state(std::move(initialState)),
          m_reducer(std::move(reducer)), m_sideEffects(std::move(sideEffects)),
          m_runner(std::make_shared<TaskRunner>(std::move(report))) {}

    ~Store() { m_self->store = nullptr; }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    [[nodiscard]] const State& state() const { return m_state; }

    /// Reduces `action` at once, schedules the effect it leads to, and notifies the observers if the state changed.
    /// Returns before the effect has run. Effects run in the order of the actions, so actions sent by observers come
    /// later.
    void send(const Action& action) {
        auto [next, effect] = m_reducer(m_state, action);
        std::optional<State> before;
        if (!(next == m_state))
            before = std::exchange(m_state, std::move(next));
        if (effect && m_sideEffects)
            startEffect(std::move(*effect));
        if (!before)
            return;
        // Posted after the effect, so that the effect has begun before a view redraws.
        if (!m_lateObservers.empty())
            m_self->executor->post([self = m_self, before = *before, after = m_state] {
                if (self->store)
                    notify(self->store->m_lateObservers, before, after);
            });
        notify(m_observers, *before, m_state);
    }

    /// The running side effects by their identifier.
    [[nodiscard]] const std::map<QUuid, TaskHandle>& activeTasks() const { return m_activeTasks; }

    /// Observes inside `send`, before it returns.
    [[nodiscard]] Observation observe(Observer observer) { return add(&Store::m_observers, std::move(observer)); }

    /// The same, but posted after the effects of the action have begun. For slow observers such as views, so that they
    /// do not delay the microphone.
    [[nodiscard]] Observation observeLater(Observer observer) {
        return add(&Store::m_lateObservers, std::move(observer));
    }

private:
    struct Self {
        Store* store;
        Executor* executor;
    };

    using Observers = std::map<uint64_t, Observer>;

    Observation add(Observers Store::*list, Observer observer) {
        const auto key = m_nextObserver++;
        (this->*list).emplace(key, std::move(observer));
        return Observation([self = m_self, list, key] {
            if (self->store)
                (self->store->*list).erase(key);
        });
    }

    static void notify(const Observers& current, const State& before, const State& after) {
        // An observer may remove itself or send further actions.
        const auto observers = current;
        for (const auto& [key, observer] : observers)
            if (current.contains(key))
                observer(before, after);
    }

    void startEffect(Effect effect) {
        const EffectIdentity identity = effectIdentity(effect);
        const auto task = QUuid::createUuid();
        // The task starts by a posted call: an effect never runs inside `send`, and its entry is always made before its
        // end removes it.
        auto handle = m_runner->schedule(*m_self->executor, QString::fromLatin1(identity.name),
                                         [self = m_self, task, effect = std::move(effect)](std::stop_token token) {
                                             return runEffect(self, task, effect, std::move(token));
                                         });
        if (identity.id) {
            auto& inFlight = m_inFlight[identity.id];
            if (identity.cancelsInFlight)
                inFlight.cancel();
            inFlight = handle;
        }
        m_activeTasks.emplace(task, std::move(handle));
    }

    static Task<> runEffect(std::shared_ptr<Self> self, QUuid task, Effect effect, std::stop_token token) {
        struct Removal {
            std::shared_ptr<Self> self;
            QUuid task;
            ~Removal() {
                if (self->store)
                    self->store->m_activeTasks.erase(task);
            }
        } const removal{self, task};

        if (!self->store)
            co_return;
        auto stream = co_await self->store->m_sideEffects(std::move(effect));
        if (!stream)
            co_return;
        while (auto next = co_await stream->next(token)) {
            if (token.stop_requested() || !self->store)
                co_return;
            self->store->send(*next);
        }
    }

    std::shared_ptr<Self> m_self;
    State m_state;
    ReduceFunction m_reducer;
    EffectFunction m_sideEffects;
    std::shared_ptr<TaskRunner> m_runner;
    std::map<QUuid, TaskHandle> m_activeTasks;
    std::map<std::string_view, TaskHandle> m_inFlight; ///< the latest effect of each id
    Observers m_observers;
    Observers m_lateObservers;
    uint64_t m_nextObserver = 0;
};

} // namespace quillo
