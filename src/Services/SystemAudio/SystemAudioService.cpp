#include "Services/SystemAudio/SystemAudioService.h"

#include "Concurrency/Perform.h"
#include "Services/SystemAudio/SystemAudioCapture.h"

namespace quillo {

SystemAudioService::SystemAudioService(AudioHardware& hardware)
    : m_hardware(hardware), m_executor(std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.system-audio"))),
      m_capture(std::make_shared<SystemAudioCapture>(hardware, *m_executor)) {
    hardware.setDefaultOutputHandler([this] { m_executor->post([capture = m_capture] { capture->followOutput(); }); });
}

SystemAudioService::~SystemAudioService() {
    m_hardware.setDefaultOutputHandler({});
    m_executor->runBlocking([this] { m_capture->stop(); });
    // The thread ends before the capture, because queued work refers to the capture.
    m_executor.reset();
}

Task<AsyncStream<AudioChunk>> SystemAudioService::startCapture() {
    return perform(*m_executor, EventExecutor::main(), [capture = m_capture] { return capture->start(); });
}

void SystemAudioService::pauseDelivery() {
    m_executor->post([capture = m_capture] { capture->pause(); });
}

Task<AsyncStream<AudioChunk>> SystemAudioService::resumeDelivery() {
    return perform(*m_executor, EventExecutor::main(), [capture = m_capture] { return capture->resume(); });
}

void SystemAudioService::stopCapture() {
    m_executor->post([capture = m_capture] { capture->stop(); });
}

Task<OutputDeviceType> SystemAudioService::detectOutputDeviceType() {
    return perform(*m_executor, EventExecutor::main(), [capture = m_capture] {
        const auto output = capture->defaultOutput();
        return output ? output->type : OutputDeviceType::unknown;
    });
}

std::optional<std::chrono::steady_clock::time_point> SystemAudioService::firstSampleAt() const {
    return m_capture->firstSampleAt();
}

} // namespace quillo
