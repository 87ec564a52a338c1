#include "Features/Recording/Captures.h"

#include <algorithm>

namespace quillo {

AudioBackups Captures::backups() const {
    std::vector<AudioBackup*> copies;
    copies.reserve(m_channels.size());
    for (const auto& channel : m_channels)
        copies.push_back(&channel->disk);
    return AudioBackups(std::move(copies));
}

void Captures::close() const {
    for (const auto& channel : m_channels)
        channel->close();
}

Task<> Captures::drainAll(std::vector<CaptureChannel::Handle> channels) {
    for (const auto& channel : channels)
        co_await CaptureChannel::drain(channel);
}

void Captures::discard() const {
    for (const auto& channel : m_channels)
        channel->discard();
}

bool Captures::isOpen() const {
    return std::ranges::any_of(m_channels, [](const auto& channel) { return channel->isOpen(); });
}

bool Captures::isSilent() const {
    return std::ranges::all_of(m_channels, [](const auto& channel) { return channel->isSilent(); });
}

CaptureChannel::Counters Captures::counters() const {
    CaptureChannel::Counters sum;
    for (const auto& channel : m_channels) {
        sum.chunks += channel->counters().chunks;
        sum.bytes += channel->counters().bytes;
        sum.hasSound = sum.hasSound || channel->counters().hasSound;
        sum.droppedChunks += channel->counters().droppedChunks;
    }
    sum.lastLevel = microphone()->counters().lastLevel;
    return sum;
}

size_t Captures::bufferedChunks() const {
    size_t sum = 0;
    for (const auto& channel : m_channels)
        sum += channel->backlog.chunkCount();
    return sum;
}

bool Captures::hasBufferedChunks() const {
    return std::ranges::any_of(m_channels, [](const auto& channel) { return !channel->backlog.isEmpty(); });
}

std::optional<AudioChunk> Captures::takeFirst() const {
    const auto precedes = [](const CaptureChannel::Handle& a, const CaptureChannel::Handle& b) {
        if (a->backlog.isEmpty() || b->backlog.isEmpty())
            return !a->backlog.isEmpty();
        return a->backlog.first().timestamp < b->backlog.first().timestamp;
    };
    return (*std::ranges::min_element(m_channels, precedes))->backlog.takeFirst();
}

void Captures::stopBuffering() const {
    for (const auto& channel : m_channels) {
        channel->feedsBacklog = false;
        channel->backlog.clear();
    }
}

} // namespace quillo
