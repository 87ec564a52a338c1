#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"
#include "Core/AudioChunk.h"
#include "Services/SystemAudio/SystemAudioError.h"

#include <chrono>
#include <optional>

namespace quillo {

/// Turns what the default output plays into a stream of 100 ms chunks, whose `level` is the raw RMS. Operations are
/// called on the main thread and serialised on the service's own executor.
class SystemAudioServiceProtocol {
public:
    virtual ~SystemAudioServiceProtocol() = default;

    /// Opens the output's monitor and starts; throws SystemAudioError, `headphonesRequired` when the output is a
    /// loudspeaker. The stream follows the default output and holds silence while that is a loudspeaker. While there is
    /// no output nothing is delivered, and the missing time follows as silence before the next output's samples. The
    /// stream ends on `pauseDelivery` or `stopCapture`; dropping it stops the capture.
    virtual Task<AsyncStream<AudioChunk>> startCapture() = 0;
    /// Ends the stream and discards its unfinished chunk; the monitor stays open for the next recording.
    virtual void pauseDelivery() = 0;
    /// A new stream from the paused monitor; without one the same as `startCapture`.
    virtual Task<AsyncStream<AudioChunk>> resumeDelivery() = 0;
    /// Delivers the unfinished chunk, ends the stream and closes the monitor. Idempotent.
    virtual void stopCapture() = 0;
    /// Of the default output, as far as it can be told.
    virtual Task<OutputDeviceType> detectOutputDeviceType() = 0;
    /// When the first sample of the running or latest stream was recorded.
    [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const = 0;
};

} // namespace quillo
