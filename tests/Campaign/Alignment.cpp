#include "Alignment.h"

#include <algorithm>
#include <numeric>
#include <optional>

namespace quillo::test {

namespace {

/// A run of this many samples is unique, and short enough to distinguish two faults next to each other.
constexpr size_t window = 24;

/// Silence, as before the signal or in a drop-out, occurs everywhere and so gives no position.
bool isTelling(SampleView samples) {
    const auto changes = std::inner_product(samples.begin() + 1, samples.end(), samples.begin(), size_t{0},
                                            std::plus<>(), std::not_equal_to<>());
    return changes >= samples.size() / 2;
}

std::optional<size_t> find(SampleView wanted, SampleView reference, size_t from, size_t to) {
    const auto begin = reference.begin() + static_cast<ptrdiff_t>(std::min(from, to));
    const auto end = reference.begin() + static_cast<ptrdiff_t>(to);
    const auto found = std::search(begin, end, wanted.begin(), wanted.end());
    return found == end ? std::nullopt : std::optional(static_cast<size_t>(found - reference.begin()));
}

} // namespace

size_t Alignment::strange() const {
    size_t placed = 0;
    for (const auto& stretch : stretches)
        placed += stretch.length;
    return heldSize - placed;
}

Alignment align(SampleView held, SampleView reference, size_t from, size_t to) {
    to = std::min(to, reference.size());
    Alignment result{{}, held.size()};
    size_t done = 0; // held samples that are in a stretch or given up
    for (size_t at = 0; at + window <= held.size();) {
        const auto wanted = held.subspan(at, window);
        if (!isTelling(wanted)) {
            ++at;
            continue;
        }
        // First try the position where the previous stretch would continue: an altered sample is not a jump.
        std::optional<size_t> place;
        if (!result.stretches.empty()) {
            const auto& last = result.stretches.back();
            const auto next = last.referenceEnd() + (at - last.heldEnd());
            if (next + window <= to && std::ranges::equal(wanted, reference.subspan(next, window)))
                place = next;
        }
        if (!place)
            place = find(wanted, reference, from, to);
        if (!place) {
            at += window / 3; // skipped samples are recovered below
            continue;
        }
        Stretch stretch{at, *place, window};
        while (stretch.held > done && stretch.reference > from &&
               held[stretch.held - 1] == reference[stretch.reference - 1]) {
            --stretch.held;
            --stretch.reference;
            ++stretch.length;
        }
        while (stretch.heldEnd() < held.size() && stretch.referenceEnd() < to &&
               held[stretch.heldEnd()] == reference[stretch.referenceEnd()])
            ++stretch.length;
        result.stretches.push_back(stretch);
        done = at = stretch.heldEnd();
    }
    return result;
}

} // namespace quillo::test
