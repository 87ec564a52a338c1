#pragma once

#include "Concurrency/AsyncStream.h"
#include "Core/AudioChunk.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

namespace quillo {

class AudioChunker;
class SampleConverter;

/// One stream of system audio, from an output's samples to chunks of 100 ms. The stream keeps the time: between two
/// outputs, and while an output is muted, it holds silence. Thread-safe.
class SystemAudioCaptureContext {
public:
    using Clock = std::chrono::steady_clock;

    explicit SystemAudioCaptureContext(AsyncStream<AudioChunk>::Sink sink);
    ~SystemAudioCaptureContext();

    /// The following samples have this rate, in Hz. Throws std::runtime_error when it cannot be converted.
    void beginOutput(double rate);
    /// Whether samples are replaced by silence: those of loudspeakers, which the microphone records already.
    void setMuted(bool muted);
    /// The next samples of the output, whose last one was recorded at `end`. On the hardware's thread.
    void processAudioBuffer(const float* samples, size_t frames, Clock::time_point end);
    /// Delivers what is left in the converter and the unfinished chunk.
    void flush();
    /// Discards both.
    void clearBuffer();

    /// When the first sample was recorded.
    [[nodiscard]] std::optional<Clock::time_point> firstSampleAt() const;
    [[nodiscard]] QString statsSummary() const;

private:
    void alignTo(Clock::time_point begin);
    void append(std::span<const int16_t> samples);
    void drainConverter();

    mutable std::mutex m_mutex;
    std::unique_ptr<AudioChunker> m_chunker;
    std::unique_ptr<SampleConverter> m_converter;
    double m_tapSampleRate = 0;
    bool m_isMuted = false;
    bool m_isAligned = false; ///< since the latest `beginOutput`
    std::optional<Clock::time_point> m_firstSampleAt;
    int64_t m_samples = 0; ///< delivered, at 16 kHz
    int64_t m_insertedSamples = 0;
    int64_t m_ioProcCallCount = 0;
    int64_t m_conversionErrorCount = 0;
};

} // namespace quillo
