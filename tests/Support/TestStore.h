#pragma once

#include "Architecture/Store.h"
#include "Support/Async.h"

#include <gtest/gtest.h>

#include <deque>
#include <sstream>

namespace quillo::test {

/// An exhaustive store: the test must expect each state change and each action fed back by an effect. It fails on an
/// unexpected one, and if an effect is still running at its end.
///
/// `name` returns an action's name for messages.
template <class State, class Action>
class TestStore {
public:
    using Reduce = std::function<State(const State&, const Action&)>;
    using Effect = std::function<Task<ActionStream<Action>>(Action, State)>;
    using Name = std::function<QString(const Action&)>;

    TestStore(State initial, Reduce reduce, Effect effect, Name name,
              std::function<bool(const Action&)> needsEffect = {})
        : m_name(std::move(name)), m_expected(initial),
          m_store(
              EventExecutor::main(), std::move(initial),
              [this, reduce = std::move(reduce)](const State& state, const Action& action) {
                  if (!m_sending)
                      m_received.push_back(action);
                  return reduce(state, action);
              },
              std::move(effect),
              [](const QString& task, const QString& error) {
                  ADD_FAILURE() << task.toStdString() << " threw " << error.toStdString();
              },
              std::move(needsEffect)) {}

    ~TestStore() {
        waitUntil([this] { return m_store.activeTasks().empty(); }, std::chrono::seconds(5));
        for (const auto& action : m_received)
            ADD_FAILURE() << "unexpected action fed back: " << m_name(action).toStdString();
        EXPECT_TRUE(m_store.activeTasks().empty()) << m_store.activeTasks().size() << " effects are still running";
    }
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;

    /// Sends `action`; `change` turns the previous state into the expected one.
    void send(const Action& action, const std::function<void(State&)>& change = {}) {
        EXPECT_TRUE(m_received.empty()) << "unreceived action: " << m_name(m_received.front()).toStdString();
        m_sending = true;
        m_store.send(action);
        m_sending = false;
        if (change)
            change(m_expected);
        EXPECT_TRUE(m_store.state() == m_expected) << "after sending " << m_name(action).toStdString();
        m_expected = m_store.state();
    }

    /// Waits for the next action fed back, which must be a `T`, and returns it. Changes of the state by actions that
    /// are received together are compared when the last of them has been received.
    template <class T>
    T receive(const std::function<void(State&)>& change = {}) {
        if (!waitUntil([this] { return !m_received.empty(); }, std::chrono::seconds(5))) {
            ADD_FAILURE() << "no action was fed back; expected " << m_name(Action(T{})).toStdString();
            return T{};
        }
        const auto action = m_received.front();
        m_received.pop_front();
        if (change)
            change(m_expected);
        if (m_received.empty()) {
            EXPECT_TRUE(m_store.state() == m_expected) << "after receiving " << m_name(action).toStdString();
        }
        const auto* expected = std::get_if<T>(&action);
        if (!expected) {
            ADD_FAILURE() << "received " << m_name(action).toStdString() << " instead of "
                          << m_name(Action(T{})).toStdString();
            return T{};
        }
        return *expected;
    }

    /// Skips actions up to the next `T`, for the many that a stream of audio brings; accepts the state as it is.
    template <class T>
    T skipTo() {
        for (;;) {
            if (!waitUntil([this] { return !m_received.empty(); }, std::chrono::seconds(5))) {
                ADD_FAILURE() << "no " << m_name(Action(T{})).toStdString() << " was fed back";
                return T{};
            }
            const auto action = m_received.front();
            m_received.pop_front();
            m_expected = m_store.state();
            if (const auto* found = std::get_if<T>(&action))
                return *found;
        }
    }

    /// Discards all received actions and lets running effects end.
    void finish() {
        waitUntil([this] { return m_store.activeTasks().empty(); }, std::chrono::seconds(5));
        m_received.clear();
        m_expected = m_store.state();
    }

    [[nodiscard]] const State& state() const { return m_store.state(); }
    [[nodiscard]] Store<State, Action>& store() { return m_store; }
    [[nodiscard]] size_t receivedCount() const { return m_received.size(); }

private:
    Name m_name;
    State m_expected;
    bool m_sending = false;
    std::deque<Action> m_received;
    Store<State, Action> m_store;
};

} // namespace quillo::test
