#pragma once

#include "Concurrency/Executor.h"
#include "Platform/AudioHardware.h"
#include "Services/AudioServiceProtocol.h"

#include <atomic>
#include <memory>

namespace quillo {

/// The decimal value; for 0 followed by "(noErr)", and for one whose four big-endian bytes are all printable ASCII by
/// those characters, as in 560947818('!obj').
[[nodiscard]] QString osStatusDescription(AudioStatus status);

/// The microphone through the audio-hardware interface: one input unit per capture, at the device's own rate. The unit
/// is opened, started and disposed on an executor of the service's own.
class AUHALAudioService final : public AudioServiceProtocol {
public:
    /// `hardware` outlives the service.
    explicit AUHALAudioService(AudioHardware& hardware);
    /// Stops a running capture.
    ~AUHALAudioService() override;

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
