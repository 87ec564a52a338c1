#include "Features/Recording/SessionStop.h"

#include "Features/Recording/AudioUplink.h"
#include "Features/Recording/Conclusion.h"
#include "Features/Recording/ConnectionTurn.h"
#include "Features/Recording/StartStopSounds.h"

namespace quillo::sessionStop {

namespace {

using namespace std::chrono_literals;

/// A shorter press was accidental: no word fits into it. It includes the hotkey's double-tap delay (0.15 s).
constexpr Clock::Duration quickTapLimit = 350ms;
constexpr Clock::Duration sessionStartedLimit = 12s;
/// How long to wait for the result without progress of the server.
constexpr Clock::Duration sessionEndedLimit = 8s;
constexpr Clock::Duration sessionEndedLimitWithProcessing = 30s;
/// The limit of all waits after the stop, even if the server makes progress. The queue waits longer.
constexpr Clock::Duration finishingLimit = 60s;

double seconds(Clock::Duration duration) { return std::chrono::duration<double>(duration).count(); }

QString word(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }

/// The earliest time at which the server can finish this dictation: the stop, or the release of the connection by the
/// previous dictation.
Clock::Instant finishingSince(const RecordingRun& run) {
    const auto since = run.stopping() ? run.stopping()->since : run.services.clock.now();
    return std::max(since, run.server.turnAt.value_or(since));
}

/// The run reason of a mere tap: nothing to transcribe and nothing to show.
std::optional<QString> tapReason(const RecordingRun& run) {
    const auto& stopping = *run.stopping();
    if (stopping.cause != StopCause::person || run.server.refusal)
        return std::nullopt;
    const auto held = stopping.since - *run.timing.recordingRequestedAt;
    if (run.captures.isSilent()) {
        recordingLog(QStringLiteral("ℹ️ Stop requested before any audio chunks — treating as quick cancel "));
        run.services.metrics.track(QStringLiteral("quick_cancel_no_session"));
        return QStringLiteral("completed(quick_cancel_no_session)");
    }
    if (held >= quickTapLimit)
        return std::nullopt;
    recordingLog(QStringLiteral("⚠️ Recording cancelled by user (quick tap) "), LogLevel::warn);
    return QStringLiteral("cancelled(quick_tap)");
}

void endTap(RecordingRun& run, const QString& reason) {
    const bool wasHeld = run.stopping()->since - *run.timing.recordingRequestedAt >= quickTapLimit;
    run.captures.discard();
    if (run.archive)
        run.archive->discard();
    run.yield(action::Reset{});
    if (wasHeld) // but there is no audio: the user may have spoken while the device was still opening
        run.yield(action::ShowHint{{QStringLiteral("pill.microphoneNotReady")}});
    run.finish(reason);
}

/// Waits for a session that has not started before the stop; false when it will not start.
Task<bool> waitForSession(RunHandle run) {
    auto& link = run->server;
    auto& clock = run->services.clock;
    recordingLog(
        QStringLiteral("⏳ Stop requested before session_started — waiting up to 12s for it (bufferedChunks=%1)")
            .arg(run->captures.bufferedChunks()));
    // While the previous dictation has the connection, that dictation's limits apply.
    if (!link.turnAt && link.before && !link.before->isSet())
        co_await link.before->wait(clock, 24h, run->token());
    const auto left = finishingSince(*run) + sessionStartedLimit - clock.now();
    if (!run->isOver() && left > Clock::Duration::zero())
        co_await link.session->decided.wait(clock, left, run->token());
    if (run->isOver())
        co_return false;
    if (link.session->isStarted)
        recordingLog(QStringLiteral("✅ session_started arrived during post-stop wait — finalizing normally "));
    else if (link.session->decided.isSet())
        recordingLog(QStringLiteral("⚠️ WebSocket not connected while waiting for session_started — it will never "
                                    "start "),
                     LogLevel::warn);
    else
        recordingLog(QStringLiteral("⚠️ session_started did not arrive within 12s cap after stop "), LogLevel::warn);
    co_return link.session->isStarted;
}

Task<> waitForSessionEnded(RunHandle run) {
    auto& clock = run->services.clock;
    const auto session = run->server.session;
    const auto started = clock.now();
    const auto last = finishingSince(*run) + finishingLimit;
    const auto limit = [&] {
        return session->isProcessingCommand ? sessionEndedLimitWithProcessing : sessionEndedLimit;
    };
    recordingLog(QStringLiteral("⏳ Waiting for session_ended (up to %1s while connected, enhanced=%2)")
                     .arg(seconds(limit()))
                     .arg(word(run->preferences.enhancedTranscription)));
    while (!session->over.isSet() && !run->isOver()) {
        const auto quietSince = std::max(started, session->lastProgressAt.value_or(started));
        const auto left = std::min(quietSince + limit(), last) - clock.now();
        if (left <= Clock::Duration::zero()) {
            recordingLog(QStringLiteral("⚠️ session_ended not received in %1s, aiProcessing=%2), continuing with "
                                        "bestAvailableText%3")
                             .arg(seconds(clock.now() - started))
                             .arg(word(session->isProcessingCommand),
                                  session->isProcessingCommand ? QStringLiteral(" (was waiting for AI)") : QString()),
                         LogLevel::warn);
            co_return;
        }
        co_await session->over.wait(clock, left, run->token());
    }
    if (session->ended)
        recordingLog(QStringLiteral("✅ session_ended received in %1s").arg(seconds(clock.now() - started)));
    else if (run->server.gone.isSet())
        recordingLog(QStringLiteral("⚠️ WebSocket disconnected while waiting for session_ended — proceeding with "
                                    "available text "),
                     LogLevel::warn);
}

Task<> sendEnd(RunHandle run) {
    run->server.session->isEndSent = true;
    try {
        co_await run->services.webSocket.endSession();
        recordingLog(QStringLiteral("✅ end_session sent to server"));
    } catch (const WebSocketError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to send end_session: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
        run->server.session->over.set();
    }
}

Task<> stop(RunHandle run) {
    if (const auto reason = tapReason(*run)) {
        endTap(*run, *reason);
        co_return;
    }
    playSound(*run, SoundCue::stop);
    recordingLog(QStringLiteral("🛑 Stopping recording... "));
    co_await endAudio(run);
    if (run->isOver())
        co_return;
    co_await endSession(run);
    if (run->isOver())
        co_return;
    conclusion::chooseText(*run);
    // Closing the socket takes time, so deliver the text first.
    connectionTurn::release(run);
    co_await conclusion::conclude(run);
}

} // namespace

void request(const RunHandle& run, StopCause cause, const QString& failure) {
    if (run->isOver() || run->stopping())
        return;
    const auto now = run->services.clock.now();
    run->phase = phase::Stopping{cause, now, failure};
    run->timing.stopRequestedAt = now;
    if (cause != StopCause::person)
        run->yield(action::StopRecording{});
    run->launch(QStringLiteral("stop recording"), [run] { return stop(run); });
}

void endDemo(const RunHandle& run) {
    run->yield(action::FinalTranscriptReceived{{.text = QStringLiteral("This is a demo mode transcription.")}});
    run->yield(action::SessionEnded{QStringLiteral("demo_metrics_001")});
    run->yield(action::RecordingCompleted{});
    run->finish(QStringLiteral("completed(demo)"));
}

Task<> endAudio(RunHandle run) {
    run->captures.close();
    co_await run->captures.drain();
    if (!run->isOver() && run->archive)
        run->archive->beginProcessing();
}

Task<> endSession(RunHandle run) {
    auto& link = run->server;
    if (link.isOffline) {
        recordingLog(QStringLiteral("✅ Audio capture stopped (offline mode)"));
        co_return;
    }
    if (link.refusal)
        co_return;
    if (!link.session->isStarted && !co_await waitForSession(run))
        co_return;
    // If audio cannot be sent, the end of the session cannot be sent either.
    if (!co_await audioUplink::finishSending(run, finishingSince(*run) + finishingLimit) || run->isOver())
        co_return;
    run->launch(QStringLiteral("end session"), [run] { return sendEnd(run); });
    co_await waitForSessionEnded(run);
}

} // namespace quillo::sessionStop
