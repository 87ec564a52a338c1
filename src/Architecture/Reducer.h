#pragma once

#include <concepts>

namespace quillo {

/// A pure function from a state and an action to the next state. Runs on the main thread for every action.
template <class R, class State, class Action>
concept Reducer = requires(const R reducer, const State& state, const Action& action) {
    { reducer.reduce(state, action) } -> std::convertible_to<State>;
};

} // namespace quillo
