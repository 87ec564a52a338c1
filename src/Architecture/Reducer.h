#pragma once

#include <concepts>
#include <optional>
#include <utility>

namespace quillo {

/// The result of an action: the next state and, if there is work with the outside world, the effect that describes it.
/// A state alone converts to a reduction without an effect.
template <class State, class Effect>
struct Reduction {
    Reduction(State next) : state(std::move(next)) {} // NOLINT(google-explicit-constructor)
    Reduction(State next, std::optional<Effect> work) : state(std::move(next)), effect(std::move(work)) {}

    State state;
    std::optional<Effect> effect;
};

/// A pure function from a state and an action to a reduction. Runs on the main thread for every action.
template <class R, class State, class Action, class Effect>
concept Reducer = requires(const R reducer, const State& state, const Action& action) {
    { reducer.reduce(state, action) } -> std::convertible_to<Reduction<State, Effect>>;
};

} // namespace quillo
