#pragma once

#include "Diarization/SpeakerTurn.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace quillo::server {

/// Distinguishes the speakers of a recording by their voices. Takes 16 kHz audio incrementally; its memory grows by
/// about a kilobyte per second of speech. Not thread-safe.
///
/// Speech is cut into windows of about two seconds, each described by the distribution of its short-time spectra
/// (mel-frequency cepstra) and by its pitch. Windows are joined bottom-up as long as one voice explains two groups
/// better than two voices do (Bayesian information criterion, Chen and Gopalakrishnan 1998).
class SpeakerTracker {
public:
    SpeakerTracker();
    ~SpeakerTracker();
    SpeakerTracker(const SpeakerTracker&) = delete;
    SpeakerTracker& operator=(const SpeakerTracker&) = delete;

    void push(std::span<const int16_t> mono);
    /// For a recording with the microphone on the left and other people on the right: no speaker is on both sides.
    void push(std::span<const int16_t> left, std::span<const int16_t> right);

    /// The turns in order of time. Do not push audio afterwards.
    std::vector<SpeakerTurn> finish();

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace quillo::server
