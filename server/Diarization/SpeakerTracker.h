#pragma once

#include "Diarization/SpeakerTurn.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace quillo::server {

/// Tells the speakers of a recording apart by the sound of their voices. Takes 16 kHz audio as it comes; its memory
/// grows by about a kilobyte for every second of speech. Not thread-safe.
///
/// Speech is cut into windows of about two seconds, each described by how its short-time spectra are distributed
/// (mel-frequency cepstra) and by its pitch. Windows are joined bottom-up as long as one voice explains two groups
/// better than two voices do (Bayesian information criterion, Chen and Gopalakrishnan 1998).
class SpeakerTracker {
public:
    SpeakerTracker();
    ~SpeakerTracker();
    SpeakerTracker(const SpeakerTracker&) = delete;
    SpeakerTracker& operator=(const SpeakerTracker&) = delete;

    void push(std::span<const int16_t> mono);
    /// Of a recording with a microphone on the left and other people on the right: nobody is on both sides.
    void push(std::span<const int16_t> left, std::span<const int16_t> right);

    /// The turns in order of time. Nothing may be pushed afterwards.
    std::vector<SpeakerTurn> finish();

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace quillo::server
