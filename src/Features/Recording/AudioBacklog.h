#pragma once

#include "Core/AudioChunk.h"

#include <deque>
#include <optional>

namespace quillo {

/// Audio captured before the server session exists. Bounded: drops the oldest chunks, never the newest.
class AudioBacklog {
public:
    static constexpr qsizetype maxBufferedAudioBytes = 2'000'000;

    /// Returns how many of the oldest chunks were dropped to make room.
    int append(AudioChunk chunk);
    std::optional<AudioChunk> takeFirst();
    void clear();

    /// Only of a backlog that is not empty.
    [[nodiscard]] const AudioChunk& first() const { return m_chunks.front(); }
    [[nodiscard]] size_t chunkCount() const { return m_chunks.size(); }
    [[nodiscard]] qsizetype byteCount() const { return m_bytes; }
    [[nodiscard]] bool isEmpty() const { return m_chunks.empty(); }

private:
    std::deque<AudioChunk> m_chunks;
    qsizetype m_bytes = 0;
    int64_t m_droppedChunks = 0;
};

} // namespace quillo
