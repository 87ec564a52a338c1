#include "Services/Microphone/AudioChunker.h"

#include <QtEndian>

namespace quillo {

AudioChunker::AudioChunker(AsyncStream<AudioChunk>::Sink sink, QString source)
    : m_sink(std::move(sink)), m_source(std::move(source)) {
    m_pendingPCM16.reserve(AudioFormat::chunkByteSize * 2);
}

void AudioChunker::append(std::span<const int16_t> samples) {
    static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "chunks hold little-endian samples");
    const auto* bytes = reinterpret_cast<const char*>(samples.data());
    auto left = static_cast<qsizetype>(samples.size_bytes());
    while (left > 0) {
        const auto taken = std::min<qsizetype>(left, AudioFormat::chunkByteSize - m_pendingPCM16.size());
        m_pendingPCM16.append(bytes, taken);
        bytes += taken;
        left -= taken;
        if (m_pendingPCM16.size() == AudioFormat::chunkByteSize) {
            yield(QByteArray(m_pendingPCM16.constData(), AudioFormat::chunkByteSize));
            m_pendingPCM16.resize(0); // keeps the reserved memory
        }
    }
}

void AudioChunker::flushPendingAudioIfAny() {
    if (m_pendingPCM16.isEmpty())
        return;
    yield(QByteArray(m_pendingPCM16.constData(), m_pendingPCM16.size()));
    m_pendingPCM16.resize(0);
}

void AudioChunker::yield(QByteArray data) {
    m_sink.yield(AudioChunk{m_sequenceNumber, std::move(data), QDateTime::currentDateTimeUtc(),
                            m_level.load(std::memory_order_relaxed), m_source});
    ++m_sequenceNumber;
}

} // namespace quillo
