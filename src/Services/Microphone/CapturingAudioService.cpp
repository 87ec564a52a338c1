#include "Services/Microphone/CapturingAudioService.h"

#include "Concurrency/Perform.h"

#include <QScopeGuard>

namespace quillo {

CapturingAudioService::CapturingAudioService(const MakeBackend& make)
    : m_executor(std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.audio"))), m_backend(make(*m_executor)) {}

CapturingAudioService::~CapturingAudioService() {
    m_executor->runBlocking([this] { m_backend->stop(); });
    // The thread ends before the backend, because queued work refers to the backend.
    m_executor.reset();
}

Task<AsyncStream<AudioChunk>> CapturingAudioService::startCapture() {
    ++*m_startsUnderWay;
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend, underWay = m_startsUnderWay] {
        const auto done = qScopeGuard([&] { --*underWay; });
        return backend->start();
    });
}

void CapturingAudioService::stopCapture() {
    // A device may take a second to open or to fail, so the main thread does not wait for it. The capture is ended
    // right after its start.
    if (*m_startsUnderWay > 0)
        m_executor->post([backend = m_backend] { backend->stop(); });
    else
        m_executor->runBlocking([this] { m_backend->stop(); });
}

Task<std::vector<AudioDevice>> CapturingAudioService::getAvailableDevices() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->devices(); });
}

Task<std::optional<AudioDevice>> CapturingAudioService::getDefaultInputDevice() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->defaultDevice(); });
}

void CapturingAudioService::setPreferredInputDeviceID(std::optional<QString> id) {
    m_executor->post([backend = m_backend, id = std::move(id)] { backend->setPreferred(id); });
}

QString CapturingAudioService::currentDeviceName() const { return m_backend->deviceName(); }

bool CapturingAudioService::startsSlowly() const { return m_backend->startsSlowly(); }

std::optional<std::chrono::steady_clock::time_point> CapturingAudioService::firstSampleAt() const {
    return m_backend->firstSampleAt();
}

} // namespace quillo
