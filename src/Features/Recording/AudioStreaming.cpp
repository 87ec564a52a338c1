#include "Features/Recording/AudioStreaming.h"

#include <memory>

namespace quillo::audioStreaming {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration firstAudioChunkTimeout = 600ms;
constexpr int maxFirstAudioChunkRestartAttempts = 1;
/// A stopped capture ends its stream at once; this only bounds a backend that does not.
constexpr Clock::Duration drainTimeout = 2s;

void recover(const RunHandle& run, QString reason);

Task<> send(RunHandle run, AudioChunk chunk) {
    try {
        co_await run->services.webSocket.sendAudio(chunk, true);
        co_return;
    } catch (const WebSocketError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to send audio chunk %1: %2")
                         .arg(chunk.sequence)
                         .arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
    }
    // The connection's end is reported by its event stream; until then nothing captured is thrown away.
    run->sendsDirectly = false;
    run->backlog.append(std::move(chunk));
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

Task<> consume(RunHandle run, std::shared_ptr<AsyncStream<AudioChunk>> stream, int generation) {
    QString lost;
    try {
        while (auto chunk = co_await stream->next(run->token())) {
            if (generation != run->captureGeneration)
                co_return;
            observe(*run, *chunk);
            if (run->sendsDirectly)
                co_await send(run, std::move(*chunk));
            else
                run->backlog.append(std::move(*chunk));
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
    run->yield(action::AudioCaptureFailed{reason});
    run->finish(QStringLiteral("failed(audio_no_callbacks)"));
    run->tasks.run(QStringLiteral("disconnect"),
                   [run](std::stop_token) -> Task<> { return run->services.webSocket.disconnect(); });
}

} // namespace

void begin(const RunHandle& run, AsyncStream<AudioChunk> stream) {
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
    if (run->isFlushing) {
        co_await run->flushed.wait(run->services.clock, std::chrono::hours(1), run->token());
        co_return;
    }
    run->isFlushing = true;
    run->flushed = AsyncEvent();
    if (!run->backlog.isEmpty())
        recordingLog(
            QStringLiteral("📤 Sending %1 buffered chunks after session_started").arg(run->backlog.chunkCount()));
    while (auto chunk = run->backlog.takeFirst()) {
        if (run->isCancelled())
            break;
        bool connected = true;
        try {
            co_await run->services.webSocket.sendAudio(*chunk, true);
        } catch (const WebSocketError& error) {
            recordingLog(
                QStringLiteral("⚠️ Failed to send buffered audio chunk: %1").arg(QString::fromUtf8(error.what())),
                LogLevel::warn);
            connected = run->services.webSocket.isConnected();
        }
        if (!connected)
            break;
    }
    run->sendsDirectly = run->services.webSocket.isConnected();
    run->isFlushing = false;
    run->flushed.set();
}

Task<> stopAndDrain(RunHandle run) {
    recordingLog(QStringLiteral("⏳ Waiting for audio stream to drain remaining chunks..."));
    run->services.audio.stopCapture();
    if (!co_await run->captureDrained.wait(run->services.clock, drainTimeout, run->token()) && !run->isCancelled())
        recordingLog(QStringLiteral("⚠️ The audio stream did not end within 2s of the stop"), LogLevel::warn);
    recordingLog(QStringLiteral("✅ Audio capture stopped and all chunks sent"));
}

} // namespace quillo::audioStreaming
