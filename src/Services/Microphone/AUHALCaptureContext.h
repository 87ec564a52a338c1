#pragma once

#include "Services/Microphone/AudioChunker.h"
#include "Services/Microphone/SampleConverter.h"

#include <chrono>
#include <mutex>
#include <optional>

namespace quillo {

// The name stays: see docs/compatibility.md.
/// The state of one capture's callback, from the device's samples to the chunk stream. `handleInput` runs on the
/// hardware's real-time thread and allocates only the chunks; call everything else after the unit has been stopped.
class AUHALCaptureContext {
public:
    /// No device delivers more than this in one callback; a larger delivery is ignored.
    static constexpr size_t maxFramesPerCallback = 16384;

    /// Throws std::runtime_error when no converter can be made for `deviceRate`, in Hz.
    AUHALCaptureContext(double deviceRate, AsyncStream<AudioChunk>::Sink sink);

    void handleInput(const float* samples, size_t frames);
    /// Delivers the samples left in the filter and the unfinished chunk. Call it once, after the last callback.
    void flush();

    /// When the first callback arrived.
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
