#pragma once

#include "Concurrency/Executor.h"
#include "Services/Microphone/AudioServiceProtocol.h"
#include "Services/Microphone/AUHALCaptureContext.h"

#include <memory>
#include <mutex>

namespace quillo {

/// The state and lifetime of a capture, independent of the source of the samples. Operations run one after the other on
/// the service's executor; values that other threads read are guarded.
class AudioCaptureBackend : public std::enable_shared_from_this<AudioCaptureBackend> {
public:
    virtual ~AudioCaptureBackend() = default;

    AsyncStream<AudioChunk> start();
    void stop();
    void setPreferred(std::optional<QString> id);
    virtual std::vector<AudioDevice> devices() = 0;
    virtual std::optional<AudioDevice> defaultDevice() = 0;
    /// Of the running or latest capture; any thread.
    [[nodiscard]] QString deviceName() const;
    /// Of the running or latest capture; any thread.
    [[nodiscard]] bool startsSlowly() const;
    /// Of the running or latest capture; any thread.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;

protected:
    /// The log lines in which backends differ.
    struct LogTexts {
        QString backend;
        QString leftOver; ///< at a start, when the last capture is still partly open
        QString started;
        QString nothingOpen; ///< at a stop
        QString stopping;
        QString statistics; ///< what precedes the figures
        QString stopped;
    };

    AudioCaptureBackend(SerialExecutor& executor, LogTexts texts);

    /// Opens and starts the device, after `setCaptured`; throws AudioServiceError.
    virtual void open(const AsyncStream<AudioChunk>::Sink& sink) = 0;
    [[nodiscard]] virtual bool isOpen() const = 0;
    /// At a stop, before `halt`: delivers the samples that the device still holds.
    virtual void readRest() {}
    /// Stops the device; no sample is delivered afterwards.
    virtual void halt() = 0;
    /// Releases everything `open` acquired, also after a partial failure. `wasCapturing`: whether capture had started.
    virtual void close(bool wasCapturing) = 0;

    void setCaptured(std::shared_ptr<AUHALCaptureContext> context, const QString& deviceName, bool startsSlowly);
    [[nodiscard]] AUHALCaptureContext& captureContext() { return *m_captureContext; }
    [[nodiscard]] const std::optional<QString>& preferredDeviceID() const { return m_preferredDeviceID; }
    /// Returns a callback for `open` to install; call it on any thread when the device has vanished. It ends the
    /// capture later, never from inside the call, because a device must not be closed from inside its own callback.
    [[nodiscard]] std::function<void(const QString& reason)> lossHandler();

private:
    void handleLost(const QString& reason);
    template <class Finish>
    void endCapture(Finish finish);

    SerialExecutor& m_executor;
    const LogTexts m_texts;
    std::optional<QString> m_preferredDeviceID;
    bool m_isCapturing = false;
    uint64_t m_capture = 0; ///< counts captures: a report of an earlier one is stale
    std::optional<AsyncStream<AudioChunk>::Sink> m_continuation;

    mutable std::mutex m_mutex;
    std::shared_ptr<AUHALCaptureContext> m_captureContext;
    QString m_deviceName;
    bool m_startsSlowly = false;
};

} // namespace quillo
