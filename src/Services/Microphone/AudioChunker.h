#pragma once

#include "Concurrency/AsyncStream.h"
#include "Core/AudioChunk.h"

#include <atomic>
#include <span>

namespace quillo {

/// Cuts converted samples into chunks of 100 ms and yields them into a stream. Used by one thread at a time; the level
/// and the counters may be read from others.
class AudioChunker {
public:
    AudioChunker(AsyncStream<AudioChunk>::Sink sink, QString source);

    void setLevel(float level) { m_level.store(level, std::memory_order_relaxed); }
    void append(std::span<const int16_t> samples);
    /// Yields what is left as a last, shorter chunk.
    void flushPendingAudioIfAny();

    [[nodiscard]] qint64 yieldedChunkCount() const { return m_sequenceNumber; }
    [[nodiscard]] qsizetype pendingBytes() const { return m_pendingPCM16.size(); }

private:
    void yield(QByteArray data);

    AsyncStream<AudioChunk>::Sink m_sink;
    QString m_source;
    QByteArray m_pendingPCM16;
    int64_t m_sequenceNumber = 0;
    std::atomic<float> m_level = 0;
};

} // namespace quillo
