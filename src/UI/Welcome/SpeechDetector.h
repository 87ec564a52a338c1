#pragma once

#include "Concurrency/Clock.h"

#include <optional>

namespace quillo {

/// Distinguishes speech from silence, a hum and a knock by the level alone: speech lasts longer than a knock and,
/// unlike a hum, varies with its syllables. Levels are those of the waveform, 0 to 1 for -60 to 0 dBFS.
class SpeechDetector {
public:
    /// Takes a level measured at `time`; true once speech has been detected. Ten levels a second are enough.
    bool hear(float level, Clock::Instant time);

private:
    void follow(float level);

    std::optional<Clock::Instant> m_last;
    Clock::Instant m_lastLoud{};
    Clock::Duration m_loudFor{};
    float m_extreme = 0; ///< the highest level since the last swing up, or the lowest since the last swing down
    bool m_isRising = false;
    int m_rises = 0;
    bool m_heard = false;
};

} // namespace quillo
