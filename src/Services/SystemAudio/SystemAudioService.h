#pragma once

#include "Services/SystemAudio/SystemAudioServiceProtocol.h"

#include <memory>

namespace quillo {

class SerialExecutor;
class SystemAudioCapture;

/// The monitor of the default output through the audio-hardware interface.
class SystemAudioService final : public SystemAudioServiceProtocol {
public:
    /// `hardware` must outlive the service, which takes its default-output handler.
    explicit SystemAudioService(AudioHardware& hardware);
    /// Stops a running capture.
    ~SystemAudioService() override;

    Task<AsyncStream<AudioChunk>> startCapture() override;
    void pauseDelivery() override;
    Task<AsyncStream<AudioChunk>> resumeDelivery() override;
    void stopCapture() override;
    Task<OutputDeviceType> detectOutputDeviceType() override;
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const override;

private:
    AudioHardware& m_hardware;
    std::unique_ptr<SerialExecutor> m_executor;
    std::shared_ptr<SystemAudioCapture> m_capture;
};

} // namespace quillo
