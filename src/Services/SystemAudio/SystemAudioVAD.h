#pragma once

#include <cstdint>
#include <mutex>

namespace quillo {

/// Decides from the level of each chunk whether anybody speaks in the system audio. A frame is one chunk of 100 ms.
/// Thread-safe.
class SystemAudioVAD {
public:
    static constexpr float speechThreshold = 0.001F; ///< raw RMS, -60 dBFS; a level at or above it counts as speech
    static constexpr int speechOnsetFrames = 3;      ///< consecutive speech frames that switch speech on
    static constexpr int speechOffsetFrames = 15;    ///< consecutive silent frames that switch it off
    static constexpr int64_t logInterval = 100;      ///< frames between two lines of statistics

    /// The raw RMS of the next chunk, 0 to 1.
    void feedLevel(float level);
    /// Forgets everything; a recording begins with it.
    void reset();

    [[nodiscard]] bool speechDetected() const;
    /// Whether speech was on at least once since the last `reset`.
    [[nodiscard]] bool speechEverDetected() const;
    /// How often speech switched on.
    [[nodiscard]] int64_t speechBurstCount() const;
    [[nodiscard]] int64_t totalSpeechFrames() const;

private:
    struct Figures {
        bool speechDetected = false;
        bool speechEverDetected = false;
        int consecutiveSpeechFrames = 0;
        int consecutiveSilenceFrames = 0;
        int64_t totalFrames = 0;
        float peakLevel = 0;
        double speechLevelSum = 0;
        int64_t totalSpeechFrames = 0;
        int64_t speechBurstCount = 0;
    };

    void hearSpeech(float level);
    void hearSilence();

    mutable std::mutex m_mutex;
    Figures m_figures;
};

} // namespace quillo
