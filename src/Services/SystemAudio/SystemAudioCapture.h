#pragma once

#include "Concurrency/AsyncStream.h"
#include "Core/AudioChunk.h"
#include "Services/SystemAudio/SystemAudioCaptureContext.h"
#include "Services/SystemAudio/SystemAudioError.h"

#include <memory>
#include <mutex>

namespace quillo {

/// The monitor of the default output and the stream that it fills. All functions run on the service's executor, except
/// `firstSampleAt`.
class SystemAudioCapture : public std::enable_shared_from_this<SystemAudioCapture> {
public:
    SystemAudioCapture(AudioHardware& hardware, Executor& executor);

    /// Throws SystemAudioError.
    AsyncStream<AudioChunk> start();
    void pause();
    /// Throws SystemAudioError.
    AsyncStream<AudioChunk> resume();
    void stop();
    /// The default output may have changed: records the new one from now on.
    void followOutput();
    /// Logs what it finds.
    std::optional<AudioOutputDevice> defaultOutput();
    /// Any thread.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;

private:
    /// The stream that the samples go to, for the callback of the hardware's thread; nothing while paused.
    class Destination {
    public:
        void set(std::shared_ptr<SystemAudioCaptureContext> context);
        [[nodiscard]] std::shared_ptr<SystemAudioCaptureContext> get() const;

    private:
        mutable std::mutex m_mutex;
        std::shared_ptr<SystemAudioCaptureContext> m_context;
    };

    AsyncStream<AudioChunk> makeStream();
    void openMonitor(const AudioOutputDevice& output);
    void closeMonitor();
    void handleLost(uint64_t monitor, const QString& reason);
    void endStream();

    AudioHardware& m_hardware;
    Executor& m_executor;
    std::unique_ptr<AudioInputUnit> m_tap; ///< the monitor; null while there is none
    uint64_t m_monitor = 0;                ///< counts monitors: a report of an earlier one is stale
    std::optional<AudioOutputDevice> m_output;
    double m_tapSampleRate = 0; ///< Hz
    std::optional<AsyncStream<AudioChunk>::Sink> m_continuation;
    uint64_t m_stream = 0; ///< counts streams
    std::shared_ptr<Destination> m_destination = std::make_shared<Destination>();
    std::shared_ptr<Destination> m_latest = std::make_shared<Destination>(); ///< also after its end
};

} // namespace quillo
