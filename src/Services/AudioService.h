#pragma once

#include "Concurrency/Executor.h"
#include "Services/AudioServiceProtocol.h"

#include <atomic>
#include <memory>

namespace quillo {

/// The microphone through an audio engine, Qt Multimedia's: a second backend with the contract of the first, for sound
/// systems that the audio-hardware interface does not know. The engine lives on an executor of the service's own.
class AudioService final : public AudioServiceProtocol {
public:
    AudioService();
    /// Stops a running capture.
    ~AudioService() override;

    Task<AsyncStream<AudioChunk>> startCapture() override;
    void stopCapture() override;
    Task<std::vector<AudioDevice>> getAvailableDevices() override;
    Task<std::optional<AudioDevice>> getDefaultInputDevice() override;
    void setPreferredInputDeviceID(std::optional<QString> id) override;
    [[nodiscard]] QString currentDeviceName() const override;
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const override;

private:
    class Backend;
    std::unique_ptr<SerialExecutor> m_executor;
    std::shared_ptr<Backend> m_backend;
    std::shared_ptr<std::atomic<int>> m_startsUnderWay = std::make_shared<std::atomic<int>>(0);
};

} // namespace quillo
