#pragma once

#include "Features/Recording/CaptureChannel.h"

#include <optional>
#include <vector>

namespace quillo {

/// All captures of one dictation: today the microphone. Whatever applies to every capture (the end, the wait for the
/// last chunks, the backlog for the server) is done here for all of them, so that no device stays open. Main thread.
class Captures {
public:
    /// The microphone's first.
    explicit Captures(std::vector<CaptureChannel::Handle> channels) : m_channels(std::move(channels)) {}

    [[nodiscard]] const CaptureChannel::Handle& microphone() const { return m_channels.front(); }
    /// The copies on disk, the microphone's first. They live as long as the captures.
    [[nodiscard]] AudioBackups backups() const;

    /// Closes every device. Audio captured so far still arrives; `drain` awaits it.
    void close() const;
    /// Returns when every chunk captured before `close` is on the disk and in the backlog.
    [[nodiscard]] Task<> drain() const { return drainAll(m_channels); }
    /// Closes every device and drops further audio.
    void discard() const;

    /// Whether a device is open or opening.
    [[nodiscard]] bool isOpen() const;
    /// Whether no chunk has arrived so far.
    [[nodiscard]] bool isSilent() const;
    /// The sums over all captures; `lastLevel` is the microphone's.
    [[nodiscard]] CaptureChannel::Counters counters() const;

    // The chunks still to be sent to the server.
    [[nodiscard]] size_t bufferedChunks() const;
    [[nodiscard]] bool hasBufferedChunks() const;
    /// The chunk that was captured first.
    [[nodiscard]] std::optional<AudioChunk> takeFirst() const;
    /// The server gets no more audio: only the disk receives the chunks.
    void stopBuffering() const;

private:
    static Task<> drainAll(std::vector<CaptureChannel::Handle> channels);

    std::vector<CaptureChannel::Handle> m_channels;
};

} // namespace quillo
