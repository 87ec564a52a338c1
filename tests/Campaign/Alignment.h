#pragma once

#include "Signal.h"

namespace quillo::test {

/// A run of samples that is the same in a recording and in the reference.
struct Stretch {
    size_t held = 0;      ///< where it begins in the recording
    size_t reference = 0; ///< where it begins in the reference
    size_t length = 0;

    [[nodiscard]] size_t heldEnd() const { return held + length; }
    [[nodiscard]] size_t referenceEnd() const { return reference + length; }
    bool operator==(const Stretch&) const = default;
};

/// How a recording maps to the reference: its stretches in the recording's order. One stretch as long as the recording
/// means a faithful copy. Between two stretches the recording may contain samples that the reference does not have
/// (altered or invented), and the next stretch may begin later in the reference (samples are missing) or earlier
/// (repeated).
struct Alignment {
    std::vector<Stretch> stretches;
    size_t heldSize = 0;

    [[nodiscard]] bool isFaithful() const { return stretches.size() == 1 && stretches.front().length == heldSize; }
    /// Samples of the recording that are in no stretch.
    [[nodiscard]] size_t strange() const;
};

/// Finds `held` in `reference[from, to)`, comparing samples exactly. Works only for signals in which no run of a few
/// dozen samples repeats, except silence.
Alignment align(SampleView held, SampleView reference, size_t from, size_t to);

} // namespace quillo::test
