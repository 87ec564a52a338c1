#pragma once

#include "Concurrency/Executor.h"
#include "Services/Microphone/AudioServiceProtocol.h"
#include "Services/Microphone/AUHALCaptureContext.h"

#include <memory>
#include <mutex>

namespace quillo {

/// The state and the life of a capture, whatever delivers the samples. Operations run on the executor of the service,
/// one after the other; what others read is guarded.
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
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;

protected:
    /// What is logged where one backend differs from the other.
    struct LogTexts {
        QString backend;
        QString leftOver; ///< at a start, when something of the last capture is still open
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
    /// At a stop, before `halt`: hands over what the device still holds.
    virtual void readRest() {}
    /// No sample is delivered from here on.
    virtual void halt() = 0;
    /// Disposes of what `open` made, be it the part before a failure. `wasCapturing`: it had been started.
    virtual void close(bool wasCapturing) = 0;

    void setCaptured(std::shared_ptr<AUHALCaptureContext> context, const QString& deviceName);
    [[nodiscard]] AUHALCaptureContext& captureContext() { return *m_captureContext; }
    [[nodiscard]] const std::optional<QString>& preferredDeviceID() const { return m_preferredDeviceID; }
    /// To be called, on any thread, when the device of the capture that is being opened is gone: ends that capture
    /// later, never from inside the call, as a device must not be ended from inside a call of its own.
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
};

} // namespace quillo
