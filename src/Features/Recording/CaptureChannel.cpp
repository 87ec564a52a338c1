#include "Features/Recording/CaptureChannel.h"

#include "Features/ErrorTexts/ErrorTexts.h"
#include "Features/Recording/RunLog.h"

namespace quillo {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration firstAudioChunkTimeout = 600ms;
/// For a device that starts slowly, after the first timeout. Headsets need up to three seconds.
constexpr Clock::Duration slowDevicePatience = 4400ms;
constexpr int maxFirstAudioChunkRestartAttempts = 1;
/// A stopped capture ends its stream at once; this limits the wait for a backend that does not.
constexpr Clock::Duration drainTimeout = 2s;

} // namespace

Task<CaptureChannel::OpenResult> CaptureChannel::open(Handle channel, std::shared_ptr<Failure> failure) {
    channel->m_state = State::opening;
    std::optional<AsyncStream<AudioChunk>> stream;
    try {
        stream.emplace(co_await channel->m_source.startCapture());
    } catch (const AudioServiceError& error) {
        *failure = {QString::fromUtf8(error.what()), errorTexts::of(error)};
    }
    // Drop the stream to end its capture: a stop would also end the capture of a newer dictation.
    if (channel->m_state != State::opening)
        co_return OpenResult::closedMeanwhile;
    if (!stream) {
        channel->m_state = State::closed;
        co_return OpenResult::failed;
    }
    channel->m_state = State::open;
    channel->read(std::move(*stream));
    co_return OpenResult::opened;
}

void CaptureChannel::read(AsyncStream<AudioChunk> stream) {
    m_wasRead = true;
    auto shared = std::make_shared<AsyncStream<AudioChunk>>(std::move(stream));
    hooks.launch(QStringLiteral("audio streaming"), [channel = shared_from_this(), shared, generation = m_generation] {
        return consume(channel, shared, generation);
    });
}

Task<> CaptureChannel::consume(Handle channel, std::shared_ptr<AsyncStream<AudioChunk>> stream, int generation) {
    QString lost;
    try {
        while (auto chunk = co_await stream->next(channel->m_stop.get_token())) {
            if (generation != channel->m_generation)
                co_return;
            channel->take(std::move(*chunk));
        }
    } catch (const AudioServiceError& error) {
        lost = QString::fromUtf8(error.what());
    }
    if (generation != channel->m_generation)
        co_return;
    if (lost.isEmpty() || !channel->isOpen())
        channel->m_drained.set();
    else
        channel->hooks.launch(QStringLiteral("replace microphone"),
                              [channel, lost] { return replaceDevice(channel, lost); });
}

/// Write to the disk first and do not wait here: a stalled connection must not delay the audio.
void CaptureChannel::take(AudioChunk chunk) {
    disk.append(chunk);
    ++m_counters.chunks;
    m_counters.bytes += chunk.data.size();
    m_counters.lastLevel = chunk.level;
    m_counters.hasSound = m_counters.hasSound || chunk.data.count('\0') < chunk.data.size();
    if (feedsBacklog)
        m_counters.droppedChunks += backlog.append(chunk);
    m_firstChunk.set();
    hooks.captured(chunk);
}

/// Opens the device again; on failure returns false and the reason.
Task<bool> CaptureChannel::restart(Handle channel, std::shared_ptr<QString> failure) {
    const int generation = ++channel->m_generation;
    channel->m_firstChunk = AsyncEvent();
    channel->m_source.stopCapture();
    std::optional<AsyncStream<AudioChunk>> stream;
    try {
        stream.emplace(co_await channel->m_source.startCapture());
    } catch (const AudioServiceError& error) {
        *failure = QString::fromUtf8(error.what());
    }
    if (!channel->isOpen()) {
        channel->m_drained.set();
        co_return true;
    }
    // A later restart began while the device opened; its stream counts, and this one has been stopped.
    if (generation != channel->m_generation)
        co_return true;
    if (!stream)
        co_return false;
    channel->read(std::move(*stream));
    co_return true;
}

/// The device vanished during the recording. Continue with another one if possible.
Task<> CaptureChannel::replaceDevice(Handle channel, QString reason) {
    recordingLog(QStringLiteral("⚠️ Microphone lost during recording: %1").arg(reason), LogLevel::warn);
    const auto failure = std::make_shared<QString>();
    if (co_await restart(channel, failure)) {
        recordingLog(QStringLiteral("🔄 Recording continues on '%1'").arg(channel->m_source.currentDeviceName()));
        // The replacement may be as dead as the one before it.
        co_await watchFirstChunk(channel);
        co_return;
    }
    channel->m_state = State::closed;
    channel->m_drained.set();
    channel->hooks.lost(reason);
}

Task<> CaptureChannel::watchFirstChunk(Handle channel) {
    for (int attempt = 1;; ++attempt) {
        const int generation = channel->m_generation;
        const auto firstChunk = channel->m_firstChunk;
        if (co_await firstChunk.wait(channel->m_clock, firstAudioChunkTimeout, channel->m_stop.get_token()))
            co_return;
        // A replaced device has a watch of its own.
        if (!channel->isOpen() || generation != channel->m_generation)
            co_return;
        const auto device = channel->m_source.currentDeviceName();
        if (channel->m_source.startsSlowly()) {
            co_await watchSlowDevice(channel, device);
            co_return;
        }
        if (attempt > maxFirstAudioChunkRestartAttempts) {
            channel->giveUp(device);
            co_return;
        }
        recordingLog(QStringLiteral("⚠️ Audio capture produced no chunks (no callbacks) within %1s. Restart attempt #%2")
                         .arg(std::chrono::duration<double>(firstAudioChunkTimeout).count())
                         .arg(attempt),
                     LogLevel::warn);
        recordingLog(QStringLiteral("🔄 Restarting audio capture (no callbacks) "));
        const auto failure = std::make_shared<QString>();
        if (!co_await restart(channel, failure)) {
            recordingLog(QStringLiteral("❌ Audio capture restart failed: %1").arg(*failure), LogLevel::error);
            channel->giveUp(device);
            co_return;
        }
        recordingLog(QStringLiteral("✅ Audio capture restarted (waiting for chunks)... "));
    }
}

Task<> CaptureChannel::watchSlowDevice(Handle channel, QString device) {
    recordingLog(QStringLiteral("⏳ Waiting for '%1', which starts slowly").arg(device));
    channel->hooks.waiting(device);
    const int generation = channel->m_generation;
    const auto firstChunk = channel->m_firstChunk;
    const bool came = co_await firstChunk.wait(channel->m_clock, slowDevicePatience, channel->m_stop.get_token());
    if (!came && channel->isOpen() && generation == channel->m_generation)
        channel->giveUp(device);
}

void CaptureChannel::giveUp(const QString& device) {
    recordingLog(QStringLiteral("🧯 Aborting recording: no audio callbacks detected"), LogLevel::error);
    close();
    m_drained.set();
    if (isSilent())
        hooks.silent(device);
    else
        hooks.lost(QStringLiteral("No audio from microphone '%1'").arg(device));
}

void CaptureChannel::close() {
    const bool wasOpen = isOpen();
    m_state = State::closed;
    if (wasOpen)
        m_source.stopCapture();
}

Task<> CaptureChannel::drain(Handle channel) {
    if (!channel->m_wasRead)
        co_return;
    recordingLog(QStringLiteral("⏳ Waiting for audio stream to drain remaining chunks..."));
    const auto token = channel->m_stop.get_token();
    if (!co_await channel->m_drained.wait(channel->m_clock, drainTimeout, token) && !token.stop_requested()) {
        recordingLog(QStringLiteral("⚠️ The audio stream did not end within 2s of the stop"), LogLevel::warn);
        channel->m_stop.request_stop();
    }
    recordingLog(QStringLiteral("✅ Audio capture stopped and all chunks sent"));
}

void CaptureChannel::discard() {
    close();
    ++m_generation;
    m_stop.request_stop();
}

} // namespace quillo
