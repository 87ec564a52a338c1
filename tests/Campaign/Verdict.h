#pragma once

#include "Alignment.h"

#include <QStringList>

#include <optional>

namespace quillo::test {

/// Positions of events in the reference, in samples.
struct Moments {
    int64_t pressed = 0; ///< the key went down
    /// After this nothing needs to be recorded: the key was released, or a process that delivers or stores the samples
    /// was killed.
    int64_t ended = 0;
    /// The sound server was replaced here. The microphone delivered nothing in between; the recording may continue
    /// afterwards or not.
    std::optional<int64_t> seam;
};

/// How many samples may legitimately be missing. Measured in runs without a fault; see Campaign.cpp.
struct Bounds {
    int64_t start = 0; ///< from the key to the first sample
    int64_t end = 0;   ///< before `Moments::ended`
    /// Samples that the reference may lack at the seam: its recorder ends with the sound server and loses what it has
    /// not written.
    int64_t unrecorded = 0;
};

/// The comparison of one recording with what the microphone delivered. All counts in samples.
struct Verdict {
    int64_t delivered = 0;  ///< from the first held sample, or from the latest start, to the end
    int64_t held = 0;       ///<
    int64_t startDelay = 0; ///< from the key to the first held sample
    int64_t endMargin = 0;  ///< from the end to the last held sample; negative: missing, in flight or lost
    int64_t lost = 0;       ///< delivered, not held, and beyond what may be in flight
    int64_t strange = 0;    ///< held, but not as delivered
    int64_t repeated = 0;   ///< held twice
    QStringList faults;     ///< sentences; empty when the recording is correct
};

/// Judges a recording that must be one contiguous stretch of the reference; `alignment` may have none when nothing is
/// held.
Verdict judge(const Alignment& alignment, SampleView held, const Moments& moments, const Bounds& bounds);

} // namespace quillo::test
