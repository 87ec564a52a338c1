#pragma once

namespace quillo {

/// Visits a variant with one lambda per alternative.
template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};

} // namespace quillo
