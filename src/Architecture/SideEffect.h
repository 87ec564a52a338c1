#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"

#include <optional>

namespace quillo {

/// The actions that an effect feeds back into the store; nothing when there are none.
template <class Action>
using ActionStream = std::optional<AsyncStream<Action>>;

/// What the store knows of an effect. An effect type says it by a function `effectIdentity(const Effect&)` in its own
/// namespace; without one every effect is on its own.
struct EffectIdentity {
    const char* name = "side effect"; ///< for reports
    const char* id = nullptr;         ///< effects with the same id are one piece of work
    /// The running effect of this id forwards nothing more from the moment this one is sent, not even what it has
    /// yielded already.
    bool cancelsInFlight = false;
};

/// Does the work with the outside world that an effect names.
///
/// `handle` is called on the main thread, never inside `Store::send`, and suspends as long as it needs. Failures are
/// actions on the stream: an exception that escapes is only reported.
template <class Effect, class Action>
class SideEffectHandler {
public:
    virtual ~SideEffectHandler() = default;
    virtual Task<ActionStream<Action>> handle(Effect effect) = 0;
};

} // namespace quillo
