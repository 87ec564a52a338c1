#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"

#include <optional>

namespace quillo {

/// What an effect answers: nothing, or a stream of actions to be fed back into the store.
template <class Action>
using ActionStream = std::optional<AsyncStream<Action>>;

/// Does the work with the outside world that an action asks for.
///
/// `handle` is called on the main thread with the action and the state that the reducer produced for it. It suspends as
/// long as it needs. Failures are actions on the stream: an exception that escapes is only reported.
template <class State, class Action>
class SideEffectHandler {
public:
    virtual ~SideEffectHandler() = default;

    /// Whether `action` can lead to work at all. An action that never does costs no task.
    [[nodiscard]] virtual bool handles(const Action& /*action*/) const { return true; }
    virtual Task<ActionStream<Action>> handle(Action action, State state) = 0;
};

} // namespace quillo
