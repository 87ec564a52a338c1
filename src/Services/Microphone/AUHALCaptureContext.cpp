#include "Services/Microphone/AUHALCaptureContext.h"

#include "Core/Log.h"
#include "Services/Microphone/AudioLevel.h"

namespace quillo {

AUHALCaptureContext::AUHALCaptureContext(double deviceRate, AsyncStream<AudioChunk>::Sink sink)
    : m_converter(deviceRate, maxFramesPerCallback), m_chunker(std::move(sink), AudioChunk::microphone) {}

void AUHALCaptureContext::handleInput(const float* samples, size_t frames) {
    if (frames == 0 || frames > maxFramesPerCallback)
        return;
    if (m_callbackCount++ == 0)
        m_firstSampleAt = std::chrono::steady_clock::now().time_since_epoch().count();
    m_renderedFrames += static_cast<qint64>(frames);
    m_chunker.setLevel(audioLevel(samples, frames));
    try {
        m_chunker.append(m_converter.convert(samples, frames));
    } catch (const std::runtime_error& error) {
        ++m_conversionErrorCount;
        appLog(QStringLiteral("⚠️ Audio converter error: %1").arg(QString::fromUtf8(error.what())), LogLevel::warn,
               QStringLiteral("AudioService"));
    }
}

void AUHALCaptureContext::flush() {
    if (m_callbackCount > 0) {
        try {
            m_chunker.append(m_converter.flush());
        } catch (const std::runtime_error&) {
            ++m_conversionErrorCount;
        }
    }
    m_chunker.flushPendingAudioIfAny();
}

std::optional<std::chrono::steady_clock::time_point> AUHALCaptureContext::firstSampleAt() const {
    const auto nanoseconds = m_firstSampleAt.load();
    if (nanoseconds == 0)
        return std::nullopt;
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(nanoseconds));
}

QString AUHALCaptureContext::statsSummary() const {
    return QStringLiteral(
               "callbacks=%1 renderedFrames=%2 yieldedChunks=%3 renderErrors=%4 conversionErrors=%5 pendingBytes=%6")
        .arg(m_callbackCount)
        .arg(m_renderedFrames)
        .arg(m_chunker.yieldedChunkCount())
        .arg(m_renderErrorCount)
        .arg(m_conversionErrorCount)
        .arg(m_chunker.pendingBytes());
}

} // namespace quillo
