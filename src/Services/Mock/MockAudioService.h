#pragma once

#include "Concurrency/Executor.h"
#include "Services/Microphone/AudioServiceProtocol.h"

#include <QStringList>

#include <functional>
#include <utility>

namespace quillo {

/// A scripted microphone: the test speaks into the running capture, removes the device, or makes a start fail or hang.
/// Main thread only. A capture that yields nothing simulates a device that opens and stays silent.
class MockAudioService : public AudioServiceProtocol {
public:
    std::vector<AudioDevice> devices{{QStringLiteral("mic"), QStringLiteral("Microphone"), true}};
    std::optional<QString> preferredInputDeviceID;
    QString deviceName = QStringLiteral("Microphone");
    std::optional<std::chrono::steady_clock::time_point> firstSample;
    /// The next start throws this.
    std::optional<AudioServiceError> nextStartError;
    /// When set, a start waits here, as with a slow device.
    std::function<Task<>()> beforeStart;
    /// Called inside `stopCapture` of a running capture, before the stream ends: for a last chunk that is flushed.
    std::function<void()> beforeStop;
    /// The calls in their order: "startCapture", "stopCapture", "setPreferredInputDeviceID(<id>)".
    QStringList calls;

    /// Speaks 100 ms of silence, or `data` when given, with the next sequence number; false when nothing captures.
    bool speak(float level = 0.5F, QByteArray data = QByteArray(AudioFormat::chunkByteSize, '\0')) {
        AudioChunk chunk;
        chunk.sequence = m_nextSequence;
        chunk.data = std::move(data);
        chunk.timestamp = QDateTime::currentDateTimeUtc();
        chunk.level = level;
        return yield(std::move(chunk));
    }

    /// Yields `chunk` as it is; false when nothing captures.
    bool yield(AudioChunk chunk) {
        if (!isCapturing())
            return false;
        if (!firstSample)
            firstSample = std::chrono::steady_clock::now();
        m_nextSequence = chunk.sequence + 1;
        return m_sink.yield(std::move(chunk));
    }

    /// Removes the device: the stream fails as the real one does.
    void loseDevice(const QString& message = QStringLiteral("The microphone 'Microphone' is gone.")) {
        if (std::exchange(m_isCapturing, false))
            m_sink.fail(
                std::make_exception_ptr(AudioServiceError(AudioServiceError::Code::deviceSetupFailed, message)));
    }

    [[nodiscard]] bool isCapturing() const { return m_isCapturing; }
    /// How many captures were started, and how many of them have ended for any reason.
    [[nodiscard]] int starts() const { return m_starts; }
    [[nodiscard]] int ends() const { return m_starts - (m_isCapturing ? 1 : 0); }

    Task<AsyncStream<AudioChunk>> startCapture() override {
        calls.append(QStringLiteral("startCapture"));
        if (beforeStart)
            co_await beforeStart();
        if (nextStartError) {
            const auto error = *std::exchange(nextStartError, std::nullopt);
            throw error;
        }
        if (m_isCapturing)
            throw AudioServiceError(AudioServiceError::Code::alreadyCapturing);
        auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
        m_sink = sink;
        m_isCapturing = true;
        m_nextSequence = 0;
        firstSample.reset();
        const int capture = ++m_starts;
        m_sink.onTermination([this, alive = std::weak_ptr(m_alive), capture](StreamTermination) {
            if (alive.lock() && capture == m_starts)
                m_isCapturing = false;
        });
        co_return std::move(stream);
    }

    void stopCapture() override {
        calls.append(QStringLiteral("stopCapture"));
        if (!m_isCapturing)
            return;
        if (beforeStop)
            beforeStop();
        m_isCapturing = false;
        m_sink.finish();
    }

    Task<std::vector<AudioDevice>> getAvailableDevices() override { co_return devices; }

    Task<std::optional<AudioDevice>> getDefaultInputDevice() override {
        for (const auto& device : devices)
            if (device.isDefault)
                co_return device;
        co_return std::nullopt;
    }

    void setPreferredInputDeviceID(std::optional<QString> id) override {
        calls.append(QStringLiteral("setPreferredInputDeviceID(%1)").arg(id.value_or(QStringLiteral("nil"))));
        preferredInputDeviceID = std::move(id);
    }

    [[nodiscard]] QString currentDeviceName() const override { return m_starts > 0 ? deviceName : QString(); }
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const override {
        return firstSample;
    }

private:
    AsyncStream<AudioChunk>::Sink m_sink;
    bool m_isCapturing = false;
    int64_t m_nextSequence = 0;
    int m_starts = 0;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace quillo
