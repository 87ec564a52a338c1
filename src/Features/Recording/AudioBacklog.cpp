#include "Features/Recording/AudioBacklog.h"

#include "Core/Log.h"

namespace quillo {

namespace {

constexpr int64_t chunksPerMinute = 600;

} // namespace

int AudioBacklog::append(AudioChunk chunk) {
    const auto wanted = m_bytes + chunk.data.size();
    m_bytes = wanted;
    m_chunks.push_back(std::move(chunk));
    int dropped = 0;
    while (m_bytes > maxBufferedAudioBytes && m_chunks.size() > 1) {
        m_bytes -= m_chunks.front().data.size();
        m_chunks.pop_front();
        ++dropped;
    }
    // Beyond the limit every chunk drops one: log the first and then once a minute.
    const bool tell = dropped > 0 && m_droppedChunks % chunksPerMinute == 0;
    m_droppedChunks += dropped;
    if (tell)
        appLog(QStringLiteral("⚠️ Buffered audio exceeded cap (%1 bytes). Dropped %2 oldest chunks. bufferedChunks=%3")
                   .arg(wanted)
                   .arg(dropped)
                   .arg(m_chunks.size()),
               LogLevel::warn, QStringLiteral("Recording"));
    return dropped;
}

std::optional<AudioChunk> AudioBacklog::takeFirst() {
    if (m_chunks.empty())
        return std::nullopt;
    auto chunk = std::move(m_chunks.front());
    m_chunks.pop_front();
    m_bytes -= chunk.data.size();
    return chunk;
}

void AudioBacklog::clear() {
    m_chunks.clear();
    m_bytes = 0;
    m_droppedChunks = 0;
}

} // namespace quillo
