#pragma once

namespace quillo::server {

/// Consecutive speech of one speaker, in seconds from the start of the audio.
struct SpeakerTurn {
    double start = 0;
    double end = 0;
    int speaker = 0; ///< from 0, in the order of their first words
    int side = 0;    ///< 1 on the right of a stereo recording
};

} // namespace quillo::server
