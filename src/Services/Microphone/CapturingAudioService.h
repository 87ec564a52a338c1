#pragma once

#include "Services/Microphone/AudioCaptureBackend.h"

#include <atomic>
#include <functional>

namespace quillo {

/// Implements the audio service over a capture backend, which runs on the service's own executor.
class CapturingAudioService : public AudioServiceProtocol {
public:
    using MakeBackend = std::function<std::shared_ptr<AudioCaptureBackend>(SerialExecutor&)>;

    /// Stops a running capture.
    ~CapturingAudioService() override;

    Task<AsyncStream<AudioChunk>> startCapture() override;
    void stopCapture() override;
    Task<std::vector<AudioDevice>> getAvailableDevices() override;
    Task<std::optional<AudioDevice>> getDefaultInputDevice() override;
    void setPreferredInputDeviceID(std::optional<QString> id) override;
    [[nodiscard]] QString currentDeviceName() const override;
    [[nodiscard]] bool startsSlowly() const override;
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const override;

protected:
    explicit CapturingAudioService(const MakeBackend& make);

private:
    std::unique_ptr<SerialExecutor> m_executor;
    std::shared_ptr<AudioCaptureBackend> m_backend;
    std::shared_ptr<std::atomic<int>> m_startsUnderWay = std::make_shared<std::atomic<int>>(0);
};

} // namespace quillo
