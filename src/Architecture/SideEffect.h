#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"

#include <optional>

namespace quillo {

/// The actions that an effect feeds back into the store; nothing when there are none.
template <class Action>
using ActionStream = std::optional<AsyncStream<Action>>;

/// How the store identifies an effect. An effect type provides it by a function `effectIdentity(const Effect&)`, in the
/// type's own namespace; for a variant, in that of its alternatives. Effects with an empty identity are independent.
struct EffectIdentity {
    const char* name = "side effect"; ///< for reports
    const char* id = nullptr;         ///< effects with the same id belong together
    /// From the moment this effect is sent, the running effect with this id forwards nothing more, not even actions it
    /// has already yielded.
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
