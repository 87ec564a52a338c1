#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Concurrency/AsyncStream.h"
#include "Core/UserMessage.h"
#include "Features/Recording/AudioBacklog.h"
#include "Features/Recording/AudioBackup.h"
#include "Services/Microphone/AudioServiceProtocol.h"

#include <functional>
#include <memory>
#include <stop_token>

namespace quillo {

/// One audio source of a dictation, from the device to the disk and to the backlog for the server. It lives from `open`
/// until it is drained, which may be long before the dictation ends. Main thread; held by its coroutines.
class CaptureChannel : public std::enable_shared_from_this<CaptureChannel> {
public:
    using Handle = std::shared_ptr<CaptureChannel>;

    /// The functions a channel needs from its owner. They may be called as long as the channel lives.
    struct Hooks {
        /// Runs a coroutine and handles exceptions that escape it.
        std::function<void(const QString& name, std::function<Task<>()> body)> launch;
        /// A chunk is on the disk and in the backlog.
        std::function<void(const AudioChunk&)> captured;
        /// The device was lost and could not be replaced by one that delivers: no more chunks follow.
        std::function<void(const QString& reason)> lost;
        /// The device takes its time to deliver; called once, and the wait goes on.
        std::function<void(const QString& device)> waiting;
        /// The device delivered nothing, although it was opened twice or waited for; the capture has been closed.
        std::function<void(const QString& device)> silent;
    };
    struct Counters {
        int chunks = 0;
        qint64 bytes = 0;
        float lastLevel = 0;
        bool hasSound = false; ///< not every sample is zero, as those of a muted microphone are
        int droppedChunks = 0; ///< dropped from the backlog; only the disk has them
    };
    struct Failure {
        QString reason;    ///< for the log
        UserMessage words; ///< for the user
    };
    enum class OpenResult { opened, failed, closedMeanwhile };

    CaptureChannel(AudioServiceProtocol& source, Clock& clock, const QString& recordingId)
        : disk(recordingId), m_source(source), m_clock(clock) {}

    /// Opens the device, starting inside the call, and begins to read it. `*failure` says why it failed.
    static Task<OpenResult> open(Handle channel, std::shared_ptr<Failure> failure);
    /// Restarts the present device once if it delivers no chunk within 0.6 s, then reports it as silent. A device that
    /// starts slowly is not restarted but waited for, 3 s in all. A device that replaces a lost one is watched too.
    static Task<> watchFirstChunk(Handle channel);
    /// Closes the device, unless another dictation has opened it since. Audio captured so far still arrives; `drain`
    /// awaits it.
    void close();
    /// Returns when every chunk captured before `close` is on the disk and in the backlog.
    static Task<> drain(Handle channel);
    /// Closes the device and drops further audio.
    void discard();

    /// Whether the device is open or opening.
    [[nodiscard]] bool isOpen() const { return m_state == State::opening || m_state == State::open; }
    /// Whether no chunk has arrived so far.
    [[nodiscard]] bool isSilent() const { return m_counters.chunks == 0; }
    [[nodiscard]] const Counters& counters() const { return m_counters; }
    [[nodiscard]] const AudioServiceProtocol& source() const { return m_source; }

    Hooks hooks;
    AudioBackup disk;
    /// Chunks still to be sent to the server; not filled once `feedsBacklog` is false.
    AudioBacklog backlog;
    bool feedsBacklog = true;

private:
    enum class State { unopened, opening, open, closed };

    void read(AsyncStream<AudioChunk> stream);
    void take(AudioChunk chunk);
    static Task<> consume(Handle channel, std::shared_ptr<AsyncStream<AudioChunk>> stream, int generation);
    static Task<bool> restart(Handle channel, std::shared_ptr<QString> failure);
    static Task<> watchSlowDevice(Handle channel, QString device);
    static Task<> replaceDevice(Handle channel, QString reason);
    void giveUp(const QString& device);

    AudioServiceProtocol& m_source;
    Clock& m_clock;
    State m_state = State::unopened;
    bool m_wasRead = false;  ///< reading has begun, so there is a stream to drain
    int m_generation = 0;    ///< of the current stream: chunks from before a restart are ignored
    std::stop_source m_stop; ///< ends the reading before the stream does
    AsyncEvent m_firstChunk;
    AsyncEvent m_drained;
    Counters m_counters;
};

} // namespace quillo
