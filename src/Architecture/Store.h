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

namespace quillo {

/// Holds the state of a feature: every change goes through a pure reducer, all other work runs as side effects that
/// report back by sending further actions. Main thread only.
template <std::equality_comparable State, class Action>
class Store {
public:
    using ReduceFunction = std::function<State(const State&, const Action&)>;
    using EffectFunction = std::function<Task<ActionStream<Action>>(Action, State)>;
    using NeedsEffect = std::function<bool(const Action&)>;
    /// Called once per assignment that differs, with the state before and after it.
    using Observer = std::function<void(const State& before, const State& after)>;

    /// `report` receives what escapes a side effect; `needsEffect` may spare actions that never lead to work a task.
    Store(Executor& mainExecutor, State initialState, ReduceFunction reducer, EffectFunction sideEffects,
          TaskRunner::Report report, NeedsEffect needsEffect = {})
        : m_self(std::make_shared<Self>(Self{this, &mainExecutor})), m_state(std::move(initialState)),
          m_reducer(std::move(reducer)), m_sideEffects(std::move(sideEffects)), m_needsEffect(std::move(needsEffect)),
          m_runner(std::make_shared<TaskRunner>(std::move(report))) {}

    ~Store() { m_self->store = nullptr; }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    [[nodiscard]] const State& state() const { return m_state; }

    /// Reduces `action` at once, notifies the observers if the state changed, and starts the action's side effect with
    /// a copy of the new state. Returns before the effect has run.
    void send(const Action& action) {
        auto before = assign(m_reducer(m_state, action));
        if (!m_needsEffect || m_needsEffect(action))
            startEffect(action);
        // Posted after the effect, so that it has begun before a view redraws.
        if (before && !m_lateObservers.empty())
            m_self->executor->post([self = m_self, before = std::move(*before), after = m_state] {
                if (self->store)
                    notify(self->store->m_lateObservers, before, after);
            });
    }

    /// Side effects that have been started and not ended, by their identifier.
    [[nodiscard]] const std::map<QUuid, TaskHandle>& activeTasks() const { return m_activeTasks; }

    /// Stops the running side effects: none forwards another action.
    void cancelActiveTasks() { m_runner->cancelAll(); }

    /// Observes inside `send`, before it returns.
    [[nodiscard]] Observation observe(Observer observer) { return add(&Store::m_observers, std::move(observer)); }

    /// The same, a moment later: after the effects of the action have begun. For observers that take their time, such
    /// as views: nothing they do stands between a key and the microphone.
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

    /// The state before, if it was another one.
    std::optional<State> assign(State next) {
        if (next == m_state)
            return std::nullopt;
        State before = std::exchange(m_state, std::move(next));
        notify(m_observers, before, m_state);
        return before;
    }

    void startEffect(const Action& action) {
        const auto id = QUuid::createUuid();
        // The task starts by a posted call: an effect never runs inside `send`, and its entry is always made before its
        // end removes it.
        m_activeTasks.emplace(id,
                              m_runner->schedule(*m_self->executor, QStringLiteral("side effect"),
                                                 [self = m_self, id, action, state = m_state](std::stop_token token) {
                                                     return runEffect(self, id, action, state, std::move(token));
                                                 }));
    }

    static Task<> runEffect(std::shared_ptr<Self> self, QUuid id, Action action, State state, std::stop_token token) {
        struct Removal {
            std::shared_ptr<Self> self;
            QUuid id;
            ~Removal() {
                if (self->store)
                    self->store->m_activeTasks.erase(id);
            }
        } const removal{self, id};

        if (!self->store)
            co_return;
        auto stream = co_await self->store->m_sideEffects(std::move(action), std::move(state));
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
    NeedsEffect m_needsEffect;
    std::shared_ptr<TaskRunner> m_runner;
    std::map<QUuid, TaskHandle> m_activeTasks;
    Observers m_observers;
    Observers m_lateObservers;
    uint64_t m_nextObserver = 0;
};

} // namespace quillo
