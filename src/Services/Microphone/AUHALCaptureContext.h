#pragma once

#include "Services/Microphone/AudioChunker.h"
#include "Services/Microphone/SampleConverter.h"

#include <chrono>
#include <mutex>
#include <optional>

namespace quillo {

/// What one capture's callback works with, from the device's samples to the chunk stream. `handleInput` runs on the
/// hardware's real-time thread and allocates nothing but the chunks; everything else after the unit has been stopped.
class AUHALCaptureContext {
public:
    /// More than this in one callback is not a device's doing and is ignored.
    static constexpr size_t maxFramesPerCallback = 16384;

    /// Throws std::runtime_error when no converter can be made for `deviceRate`, in Hz.
    AUHALCaptureContext(double deviceRate, AsyncStream<AudioChunk>::Sink sink);

    void handleInput(const float* samples, size_t frames);
    /// The rest of the filter and of the chunk under way. Once, after the last callback.
    void flush();

    /// When the first callback came.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;
    [[nodiscard]] QString statsSummary() const;

private:
    SampleConverter m_converter;
    AudioChunker m_chunker;
    std::atomic<int64_t> m_firstSampleAt = 0; ///< nanoseconds of the steady clock; 0 before
    qint64 m_callbackCount = 0;
    qint64 m_renderErrorCount = 0;
    qint64 m_conversionErrorCount = 0;
    qint64 m_renderedFrames = 0;
};

} // namespace quillo
