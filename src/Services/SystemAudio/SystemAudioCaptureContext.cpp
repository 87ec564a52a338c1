#include "Services/SystemAudio/SystemAudioCaptureContext.h"

#include "Core/Log.h"
#include "Services/Microphone/AudioChunker.h"
#include "Services/Microphone/SampleConverter.h"

#include <array>
#include <cmath>

namespace quillo {

namespace {

/// The largest portion passed to the converter.
constexpr size_t portionFrames = 4096;
constexpr std::array<float, portionFrames> silence{};

float rms(const float* samples, size_t frames) {
    double sum = 0;
    for (size_t i = 0; i < frames; ++i)
        sum += static_cast<double>(samples[i]) * samples[i];
    const double value = std::sqrt(sum / static_cast<double>(frames));
    return std::isfinite(value) ? static_cast<float>(value) : 0;
}

std::chrono::steady_clock::duration duration(double frames, double rate) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(frames / rate));
}

} // namespace

SystemAudioCaptureContext::SystemAudioCaptureContext(AsyncStream<AudioChunk>::Sink sink)
    : m_chunker(std::make_unique<AudioChunker>(std::move(sink), AudioChunk::system)) {}

SystemAudioCaptureContext::~SystemAudioCaptureContext() = default;

void SystemAudioCaptureContext::beginOutput(double rate) {
    auto converter = std::make_unique<SampleConverter>(rate, portionFrames);
    const std::lock_guard lock(m_mutex);
    drainConverter();
    m_converter = std::move(converter);
    m_tapSampleRate = rate;
    m_isAligned = false;
}

void SystemAudioCaptureContext::setMuted(bool muted) {
    const std::lock_guard lock(m_mutex);
    m_isMuted = muted;
}

void SystemAudioCaptureContext::processAudioBuffer(const float* samples, size_t frames, Clock::time_point end) {
    const std::lock_guard lock(m_mutex);
    if (frames == 0 || !m_converter)
        return;
    ++m_ioProcCallCount;
    if (!std::exchange(m_isAligned, true))
        alignTo(end - duration(static_cast<double>(frames), m_tapSampleRate));
    m_chunker->setLevel(m_isMuted ? 0 : rms(samples, frames));
    try {
        for (size_t at = 0; at < frames; at += portionFrames)
            append(
                m_converter->convert(m_isMuted ? silence.data() : samples + at, std::min(frames - at, portionFrames)));
    } catch (const std::runtime_error& error) {
        ++m_conversionErrorCount;
        appLog(QStringLiteral("Converter error: %1").arg(QString::fromUtf8(error.what())), LogLevel::warn,
               QStringLiteral("SystemAudio"));
    }
}

void SystemAudioCaptureContext::alignTo(Clock::time_point begin) {
    if (!m_firstSampleAt) {
        m_firstSampleAt = begin;
        return;
    }
    const auto elapsed = std::chrono::duration<double>(begin - *m_firstSampleAt).count();
    auto missing = std::llround(elapsed * AudioFormat::sampleRate) - m_samples;
    if (missing <= 0)
        return;
    m_insertedSamples += missing;
    m_chunker->setLevel(0);
    constexpr std::array<int16_t, portionFrames> zeros{};
    for (; missing > 0; missing -= static_cast<int64_t>(portionFrames))
        append(std::span(zeros).first(std::min<size_t>(portionFrames, static_cast<size_t>(missing))));
}

void SystemAudioCaptureContext::append(std::span<const int16_t> samples) {
    m_chunker->append(samples);
    m_samples += static_cast<int64_t>(samples.size());
}

void SystemAudioCaptureContext::drainConverter() {
    if (!m_converter || !m_isAligned)
        return;
    try {
        append(m_converter->flush());
    } catch (const std::runtime_error&) {
        ++m_conversionErrorCount;
    }
    m_converter.reset();
}

void SystemAudioCaptureContext::flush() {
    const std::lock_guard lock(m_mutex);
    drainConverter();
    m_chunker->flushPendingAudioIfAny();
}

void SystemAudioCaptureContext::clearBuffer() {
    const std::lock_guard lock(m_mutex);
    m_converter.reset();
}

std::optional<SystemAudioCaptureContext::Clock::time_point> SystemAudioCaptureContext::firstSampleAt() const {
    const std::lock_guard lock(m_mutex);
    return m_firstSampleAt;
}

QString SystemAudioCaptureContext::statsSummary() const {
    const std::lock_guard lock(m_mutex);
    return QStringLiteral("callbacks=%1 samples=%2 insertedSilence=%3 yieldedChunks=%4 conversionErrors=%5")
        .arg(m_ioProcCallCount)
        .arg(m_samples)
        .arg(m_insertedSamples)
        .arg(m_chunker->yieldedChunkCount())
        .arg(m_conversionErrorCount);
}

} // namespace quillo
