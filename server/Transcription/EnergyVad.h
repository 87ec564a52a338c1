#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quillo::server {

/// Distinguishes speech from background by level, on frames of 20 ms at 16 kHz.
///
/// The background is the lowest smoothed level of the last seconds (minimum statistics), so that it adapts within a
/// second, both in a noisy room and when a dictation begins in the middle of a word. Not thread-safe.
class EnergyVad {
public:
    static constexpr size_t sampleRate = 16000;
    static constexpr size_t frameSamples = sampleRate / 50;
    /// Frames above the threshold that begin speech, and below it that end it.
    static constexpr int onsetFrames = 3;
    static constexpr int hangoverFrames = 30;

    EnergyVad();

    /// Processes the next frame of `frameSamples` samples. True during speech.
    bool process(std::span<const int16_t> frame);

private:
    void followBackground(double level);

    static constexpr size_t bucketCount = 6;
    std::array<double, bucketCount> m_lowest{};
    size_t m_bucket = 0;
    int m_framesInBucket = 0;
    double m_smoothed = 0;
    bool m_first = true;
    bool m_inSpeech = false;
    int m_run = 0;
};

/// Level of samples in dB relative to full scale, without their constant part; -100 for silence.
double levelOf(std::span<const int16_t> samples);

} // namespace quillo::server
