#include "Features/Recording/AudioStreaming.h"

#include <memory>

namespace quillo::audioStreaming {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration firstAudioChunkTimeout = 600ms;
constexpr int maxFirstAudioChunkRestartAttempts = 1;
/// A stopped capture ends its stream at once; this only bounds a backend that does not.
constexpr Clock::Duration drainTimeout = 2s;

/// The connection is stuck when not a single chunk goes out for this long.
constexpr Clock::Duration stalledSendLimit = 8s;

void recover(const RunHandle& run, QString reason);

/// Sends what waits, unless somebody is at it.
void send(const RunHandle& run) {
    if (!run->isFlushing)
        run->tasks.run(QStringLiteral("send audio"), [run](std::stop_token) { return flush(run); });
}

void observe(RecordingRun& run, const AudioChunk& chunk) {
    const auto now = run.services.clock.now();
    if (!run.timing.audioFirstChunkReceivedAt) {
        run.timing.audioFirstChunkReceivedAt = now;
        run.timing.firstSampleAt = run.services.audio.firstSampleAt();
        run.services.metrics.track(QStringLiteral("first_audio_chunk"));
    }
    run.timing.audioLastChunkReceivedAt = now;
    ++run.observedAudioChunks;
    run.observedAudioBytes += chunk.data.size();
    run.lastObservedAudioLevel = chunk.level;
    run.firstChunk.set();
    run.yield(action::AudioChunkCaptured{chunk});
    run.yield(action::AudioLevelUpdated{chunk.level});
}

/// Takes one chunk in. The disk comes first, and nothing here waits: a stalled connection must not hold the audio up.
void take(const RunHandle& run, AudioChunk chunk) {
    run->archive->append(chunk);
    if (run->isFinished)
        return;
    observe(*run, chunk);
    if (run->isOffline)
        return; // the disk has it, and nobody will ask for it here
    if (const int dropped = run->backlog.append(std::move(chunk)); dropped > 0)
        run->isIncomplete = true;
    if (run->sendsDirectly)
        send(run);
}

Task<> consume(RunHandle run, std::shared_ptr<AsyncStream<AudioChunk>> stream, int generation) {
    QString lost;
    try {
        while (auto chunk = co_await stream->next(run->captureStop.get_token())) {
            if (generation != run->captureGeneration)
                co_return;
            take(run, std::move(*chunk));
        }
    } catch (const AudioServiceError& error) {
        lost = QString::fromUtf8(error.what());
    }
    if (generation != run->captureGeneration)
        co_return;
    if (!lost.isEmpty() && !run->isStopping && !run->isCancelled())
        recover(run, lost);
    else
        run->captureDrained.set();
}

/// Opens the microphone anew for a run that lost it; false with `reason` set when that fails.
Task<bool> restart(RunHandle run, QString* reason) {
    ++run->captureGeneration;
    run->services.audio.stopCapture();
    std::optional<AsyncStream<AudioChunk>> stream;
    try {
        stream.emplace(co_await run->services.audio.startCapture());
    } catch (const AudioServiceError& error) {
        *reason = QString::fromUtf8(error.what());
    }
    if (!stream)
        co_return false;
    if (run->isStopping || run->isCancelled()) {
        // Dropping the stream ends this capture; a stop would hit the microphone of a dictation started meanwhile.
        run->captureDrained.set();
        co_return true;
    }
    begin(run, std::move(*stream));
    co_return true;
}

/// The device vanished while it was recording. Another one carries on if there is one; otherwise the dictation ends
/// with what was heard.
Task<> replaceDevice(RunHandle run, QString reason) {
    recordingLog(QStringLiteral("⚠️ Microphone lost during recording: %1").arg(reason), LogLevel::warn);
    QString restartFailure;
    if (co_await restart(run, &restartFailure)) {
        recordingLog(QStringLiteral("🔄 Recording continues on '%1'").arg(run->services.audio.currentDeviceName()));
        co_return;
    }
    run->captureFailure = reason;
    run->captureDrained.set();
    run->yield(action::StopRecording{});
}

void recover(const RunHandle& run, QString reason) {
    run->tasks.run(QStringLiteral("replace microphone"),
                   [run, reason](std::stop_token) { return replaceDevice(run, reason); });
}

void abandon(const RunHandle& run, const QString& reason) {
    recordingLog(QStringLiteral("🧯 Aborting recording: no audio callbacks detected"), LogLevel::error);
    run->services.metrics.track(QStringLiteral("recording_failed"),
                                {{QStringLiteral("reason"), QStringLiteral("audio_no_callbacks")}});
    run->services.audio.stopCapture();
    run->captureFailure = reason;
    run->captureDrained.set();
    run->archive->keepPending(QStringLiteral("audio_no_callbacks"));
    run->yield(action::AudioCaptureFailed{reason});
    run->finish(QStringLiteral("failed(audio_no_callbacks)"));
    run->tasks.run(QStringLiteral("disconnect"),
                   [run](std::stop_token) -> Task<> { return run->services.webSocket.disconnect(); });
}

} // namespace

void begin(const RunHandle& run, AsyncStream<AudioChunk> stream) {
    run->isCapturing = true;
    auto shared = std::make_shared<AsyncStream<AudioChunk>>(std::move(stream));
    run->tasks.run(QStringLiteral("audio streaming"),
                   [run, shared, generation = run->captureGeneration](std::stop_token) {
                       return consume(run, shared, generation);
                   });
}

Task<> watchFirstChunk(RunHandle run) {
    for (int attempt = 1; !co_await run->firstChunk.wait(run->services.clock, firstAudioChunkTimeout, run->token());
         ++attempt) {
        if (run->isCancelled() || run->isStopping || run->captureDrained.isSet())
            co_return;
        const auto device = run->services.audio.currentDeviceName();
        const auto message = QStringLiteral("No audio from microphone '%1'. Check System Settings → Sound → Input "
                                            "(correct device, level not at zero).")
                                 .arg(device);
        if (attempt > maxFirstAudioChunkRestartAttempts) {
            abandon(run, message);
            co_return;
        }
        recordingLog(QStringLiteral("⚠️ Audio capture produced no chunks (no callbacks) within %1s. Restart attempt #%2")
                         .arg(std::chrono::duration<double>(firstAudioChunkTimeout).count())
                         .arg(attempt),
                     LogLevel::warn);
        recordingLog(QStringLiteral("🔄 Restarting audio capture (no callbacks) "));
        QString reason;
        if (!co_await restart(run, &reason)) {
            recordingLog(QStringLiteral("❌ Audio capture restart failed: %1").arg(reason), LogLevel::error);
            if (!run->isCancelled() && !run->isStopping)
                abandon(run, message);
            co_return;
        }
        recordingLog(QStringLiteral("✅ Audio capture restarted (waiting for chunks)... "));
    }
}

Task<> flush(RunHandle run) {
    if (run->isFlushing)
        co_return;
    run->isFlushing = true;
    run->flushed = AsyncEvent();
    if (!run->sendsDirectly && !run->backlog.isEmpty())
        recordingLog(
            QStringLiteral("📤 Sending %1 buffered chunks after session_started").arg(run->backlog.chunkCount()));
    while (auto chunk = run->backlog.takeFirst()) {
        if (run->isCancelled())
            break;
        bool connected = true;
        try {
            co_await run->services.webSocket.sendAudio(*chunk, true);
            ++run->chunksSent;
        } catch (const WebSocketError& error) {
            recordingLog(
                QStringLiteral("⚠️ Failed to send buffered audio chunk: %1").arg(QString::fromUtf8(error.what())),
                LogLevel::warn);
            run->isIncomplete = true;
            connected = run->services.webSocket.isConnected();
        }
        if (!connected)
            break;
    }
    run->sendsDirectly = run->services.webSocket.isConnected();
    run->isFlushing = false;
    run->flushed.set();
}

Task<> finishSending(RunHandle run) {
    send(run);
    for (int sent = -1; run->isFlushing && sent != run->chunksSent && !run->isCancelled();) {
        sent = run->chunksSent;
        co_await run->flushed.wait(run->services.clock, stalledSendLimit, run->token());
    }
    if (run->isFlushing && !run->isCancelled())
        recordingLog(
            QStringLiteral("⚠️ The connection takes no more audio (bufferedChunks=%1)").arg(run->backlog.chunkCount()),
            LogLevel::warn);
    if (run->isFlushing || !run->backlog.isEmpty())
        run->isIncomplete = true;
}

Task<> stopAndDrain(RunHandle run) {
    run->services.audio.stopCapture();
    return drain(std::move(run));
}

Task<> drain(RunHandle run) {
    if (!run->isCapturing)
        co_return;
    recordingLog(QStringLiteral("⏳ Waiting for audio stream to drain remaining chunks..."));
    // Not ended by the run's own end: what was captured before it still belongs on the disk.
    if (!co_await run->captureDrained.wait(run->services.clock, drainTimeout, run->captureStop.get_token()) &&
        !run->captureStop.stop_requested()) {
        recordingLog(QStringLiteral("⚠️ The audio stream did not end within 2s of the stop"), LogLevel::warn);
        run->captureStop.request_stop();
    }
    recordingLog(QStringLiteral("✅ Audio capture stopped and all chunks sent"));
}

} // namespace quillo::audioStreaming
