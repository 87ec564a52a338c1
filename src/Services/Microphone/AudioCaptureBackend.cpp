#include "Services/Microphone/AudioCaptureBackend.h"

#include "Core/Log.h"

#include <utility>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("AudioService"));
}

} // namespace

AudioCaptureBackend::AudioCaptureBackend(SerialExecutor& executor, LogTexts texts)
    : m_executor(executor), m_texts(std::move(texts)) {}

AsyncStream<AudioChunk> AudioCaptureBackend::start() {
    if (m_isCapturing) {
        log(QStringLiteral("❌ startCapture failed: already capturing"), LogLevel::error);
        throw AudioServiceError(AudioServiceError::Code::alreadyCapturing);
    }
    if (isOpen()) {
        log(m_texts.leftOver, LogLevel::warn);
        close(false);
    }
    log(m_texts.backend);
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    ++m_capture;
    m_continuation = sink;
    try {
        open(sink);
    } catch (...) {
        close(false);
        m_continuation.reset();
        throw;
    }
    m_isCapturing = true;
    log(m_texts.started);
    sink.onTermination([weak = weak_from_this(), capture = m_capture](StreamTermination reason) {
        if (reason != StreamTermination::cancelled)
            return;
        if (const auto self = weak.lock())
            self->m_executor.post([weak, capture] {
                const auto backend = weak.lock();
                if (backend && backend->m_capture == capture)
                    backend->stop();
            });
    });
    return std::move(stream);
}

template <class Finish>
void AudioCaptureBackend::endCapture(Finish finish) {
    m_isCapturing = false; // from here on a stopping device is not a lost one
    halt();
    m_captureContext->flush();
    // Move the sink out before finishing it: the end of the stream calls back into this object.
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        finish(*continuation);
    close(true);
    log(m_texts.statistics + m_captureContext->statsSummary());
    log(m_texts.stopped);
}

void AudioCaptureBackend::stop() {
    if (!isOpen()) {
        log(m_texts.nothingOpen, LogLevel::debug);
        return;
    }
    log(m_texts.stopping);
    readRest();
    endCapture([](const auto& continuation) { continuation.finish(); });
    log(QStringLiteral("✅ Audio capture stopped"));
}

std::function<void(const QString& reason)> AudioCaptureBackend::lossHandler() {
    return [weak = weak_from_this(), capture = m_capture](const QString& reason) {
        if (const auto self = weak.lock())
            self->m_executor.post([weak, capture, reason] {
                const auto backend = weak.lock();
                if (backend && backend->m_capture == capture && backend->m_isCapturing)
                    backend->handleLost(reason);
            });
    };
}

void AudioCaptureBackend::handleLost(const QString& reason) {
    const auto message = QStringLiteral("The microphone '%1' is gone (%2). Connect it again or choose another one.")
                             .arg(m_deviceName, reason);
    log(QStringLiteral("⚠️ %1").arg(message), LogLevel::warn);
    endCapture([&](const auto& continuation) {
        continuation.fail(
            std::make_exception_ptr(AudioServiceError(AudioServiceError::Code::deviceLost, message, m_deviceName)));
    });
}

void AudioCaptureBackend::setCaptured(std::shared_ptr<AUHALCaptureContext> context, const QString& deviceName,
                                      bool startsSlowly) {
    const std::lock_guard lock(m_mutex);
    m_captureContext = std::move(context);
    m_deviceName = deviceName;
    m_startsSlowly = startsSlowly;
}

void AudioCaptureBackend::setPreferred(std::optional<QString> id) {
    m_preferredDeviceID = std::move(id);
    log(QStringLiteral("📌 Preferred input device set to: %1")
            .arg(m_preferredDeviceID.value_or(QStringLiteral("nil (use system default)"))));
}

QString AudioCaptureBackend::deviceName() const {
    const std::lock_guard lock(m_mutex);
    return m_deviceName;
}

bool AudioCaptureBackend::startsSlowly() const {
    const std::lock_guard lock(m_mutex);
    return m_startsSlowly;
}

std::optional<std::chrono::steady_clock::time_point> AudioCaptureBackend::firstSampleAt() const {
    const std::lock_guard lock(m_mutex);
    return m_captureContext ? m_captureContext->firstSampleAt() : std::nullopt;
}

} // namespace quillo
