#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Concurrency/AsyncStream.h"
#include "Features/Recording/AudioBacklog.h"
#include "Features/Recording/AudioBackup.h"
#include "Services/Microphone/AudioServiceProtocol.h"

#include <functional>
#include <memory>
#include <stop_token>

namespace quillo {

/// One source of audio of a dictation, from the device to the disk and to the queue for the server. It lives from
/// `open` until it is drained, however long the dictation goes on after that. Main thread; held by its coroutines.
class CaptureChannel : public std::enable_shared_from_this<CaptureChannel> {
public:
    using Handle = std::shared_ptr<CaptureChannel>;

    /// What a channel needs of its owner. The hooks may be called as long as the channel lives.
    struct Hooks {
        /// Runs a coroutine and deals with what escapes it.
        std::function<void(const QString& name, std::function<Task<>()> body)> launch;
        /// A chunk is on the disk and in the backlog.
        std::function<void(const AudioChunk&)> captured;
        /// The device went and could not be replaced: no chunk comes any more.
        std::function<void(const QString& reason)> lost;
        /// The device was opened twice and delivered nothing. The capture has been closed.
        std::function<void(const QString& device)> silent;
    };
    struct Counters {
        int chunks = 0;
        qint64 bytes = 0;
        float lastLevel = 0;
        int droppedChunks = 0; ///< of the backlog: the disk alone has them
    };
    enum class OpenResult { opened, failed, closedMeanwhile };

    CaptureChannel(AudioServiceProtocol& source, Clock& clock, const QString& recordingId)
        : disk(recordingId), m_source(source), m_clock(clock) {}

    /// Opens the device, starting inside the call, and begins to read it. `*failure` says why it failed.
    static Task<OpenResult> open(Handle channel, std::shared_ptr<QString> failure);
    /// Restarts a device that delivers no chunk within 0.6 s once, then gives it up as silent.
    static Task<> watchFirstChunk(Handle channel);
    /// Closes the device. What it has captured until now still arrives; `drain` awaits it. A device that another
    /// dictation has opened since is left alone.
    void close();
    /// Returns when every chunk captured before `close` is on the disk and in the backlog.
    static Task<> drain(Handle channel);
    /// Closes the device and takes nothing more in.
    void discard();

    /// The device is open or about to be.
    [[nodiscard]] bool isOpen() const { return m_state == State::opening || m_state == State::open; }
    /// Nothing was heard so far.
    [[nodiscard]] bool isSilent() const { return m_counters.chunks == 0; }
    [[nodiscard]] const Counters& counters() const { return m_counters; }
    [[nodiscard]] const AudioServiceProtocol& source() const { return m_source; }

    Hooks hooks;
    AudioBackup disk;
    /// What the server has still to get; not filled once `feedsBacklog` is false.
    AudioBacklog backlog;
    bool feedsBacklog = true;

private:
    enum class State { unopened, opening, open, closed };

    void read(AsyncStream<AudioChunk> stream);
    void take(AudioChunk chunk);
    static Task<> consume(Handle channel, std::shared_ptr<AsyncStream<AudioChunk>> stream, int generation);
    static Task<bool> restart(Handle channel, std::shared_ptr<QString> failure);
    static Task<> replaceDevice(Handle channel, QString reason);
    void giveUp(const QString& device);

    AudioServiceProtocol& m_source;
    Clock& m_clock;
    State m_state = State::unopened;
    bool m_wasRead = false;  ///< a stream was begun, so that there is one to drain
    int m_generation = 0;    ///< of the stream being read: chunks of the one before a restart do not count
    std::stop_source m_stop; ///< ends the reading before the stream does
    AsyncEvent m_firstChunk;
    AsyncEvent m_drained;
    Counters m_counters;
};

} // namespace quillo
