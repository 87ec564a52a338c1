#include "Features/Recording/SessionStop.h"

#include "Features/Recording/AudioStreaming.h"
#include "Features/Recording/StartStopSounds.h"
#include "Features/Recording/TextDelivery.h"
#include "Localization/LocalizationManager.h"

namespace quillo::sessionStop {

namespace {

using namespace std::chrono_literals;

/// A key tapped for less than this was hit by accident: nobody says a word in it. The double-tap delay of the hotkey
/// (0.15 s) is part of it.
constexpr Clock::Duration quickTapLimit = 350ms;
constexpr Clock::Duration sessionStartedLimit = 12s;
/// How long the server may be silent before its last word, counted anew from each of its messages.
constexpr Clock::Duration sessionEndedLimit = 8s;
constexpr Clock::Duration sessionEndedLimitWithProcessing = 30s;

double seconds(Clock::Duration duration) { return std::chrono::duration<double>(duration).count(); }

/// A tap: nothing to transcribe and nothing to tell.
bool wasTap(RecordingRun& run) {
    const auto held = run.services.clock.now() - *run.timing.recordingRequestedAt;
    if (run.observedAudioChunks == 0 && !run.captureFailure) {
        recordingLog(QStringLiteral("ℹ️ Stop requested before any audio chunks — treating as quick cancel "));
        run.services.metrics.track(QStringLiteral("quick_cancel_no_session"));
        run.log.end(QStringLiteral("completed(quick_cancel_no_session)"), run.counters());
        return true;
    }
    if (held < quickTapLimit) {
        recordingLog(QStringLiteral("⚠️ Recording cancelled by user (quick tap) "), LogLevel::warn);
        run.log.end(QStringLiteral("cancelled(quick_tap)"), run.counters());
        return true;
    }
    return false;
}

/// Waits for the session that a stop came too early for; false when it will not start.
Task<bool> waitForSession(RunHandle run) {
    recordingLog(
        QStringLiteral("⏳ Stop requested before session_started — waiting up to 12s for it (bufferedChunks=%1)")
            .arg(run->backlog.chunkCount()));
    const auto deadline = run->services.clock.now() + sessionStartedLimit;
    while (!run->sessionStarted.isSet() && !run->isCancelled()) {
        if (run->connectionGone.isSet()) {
            recordingLog(QStringLiteral("⚠️ WebSocket not connected while waiting for session_started — it will never "
                                        "start "),
                         LogLevel::warn);
            co_return false;
        }
        const auto left = deadline - run->services.clock.now();
        if (left <= Clock::Duration::zero()) {
            recordingLog(QStringLiteral("⚠️ session_started did not arrive within 12s cap after stop "), LogLevel::warn);
            co_return false;
        }
        // The connection may break while we wait, so look up in between.
        co_await run->sessionStarted.wait(run->services.clock, std::min<Clock::Duration>(left, 200ms), run->token());
    }
    if (run->isCancelled())
        co_return false;
    recordingLog(QStringLiteral("✅ session_started arrived during post-stop wait — finalizing normally "));
    co_return true;
}

Task<> waitForSessionEnded(RunHandle run) {
    auto& clock = run->services.clock;
    const auto started = clock.now();
    const auto limit = [&] { return run->isCommandProcessing ? sessionEndedLimitWithProcessing : sessionEndedLimit; };
    recordingLog(QStringLiteral("⏳ Waiting for session_ended (up to %1s while connected, enhanced=%2)")
                     .arg(seconds(limit()))
                     .arg(run->preferences.enhancedTranscription ? QStringLiteral("true") : QStringLiteral("false")));
    while (!run->sessionEnded.isSet() && !run->isCancelled()) {
        const auto quietSince = std::max(started, run->lastServerMessageAt.value_or(started));
        const auto left = quietSince + limit() - clock.now();
        if (left <= Clock::Duration::zero()) {
            recordingLog(QStringLiteral("⚠️ session_ended not received in %1s, aiProcessing=%2), continuing with "
                                        "bestAvailableText%3")
                             .arg(seconds(clock.now() - started))
                             .arg(run->isCommandProcessing ? QStringLiteral("true") : QStringLiteral("false"),
                                  run->isCommandProcessing ? QStringLiteral(" (was waiting for AI)") : QString()),
                         LogLevel::warn);
            co_return;
        }
        co_await run->sessionEnded.wait(clock, left, run->token());
    }
    if (run->ended)
        recordingLog(QStringLiteral("✅ session_ended received in %1s").arg(seconds(clock.now() - started)));
    else if (run->connectionGone.isSet())
        recordingLog(QStringLiteral("⚠️ WebSocket disconnected while waiting for session_ended — proceeding with "
                                    "available text "),
                     LogLevel::warn);
}

Task<> endSession(RunHandle run) {
    if (!run->backlog.isEmpty() || run->isFlushing)
        co_await audioStreaming::flush(run);
    try {
        co_await run->services.webSocket.endSession();
        recordingLog(QStringLiteral("✅ end_session sent to server"));
    } catch (const WebSocketError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to send end_session: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
        run->sessionEnded.set();
    }
    co_await waitForSessionEnded(run);
}

QString chooseText(const RecordingRun& run) {
    const auto texts = run.services.webSocket.texts();
    if (!run.ended)
        return texts.bestAvailableText();
    if (run.ended->commandApplied) {
        recordingLog(QStringLiteral("💾 Original text saved (before AI processing)"));
        recordingLog(QStringLiteral("📝 [Original]\\n%1").arg(texts.originalTextBeforeCommand));
        recordingLog(QStringLiteral("✨ [AI Processed]\\n%1").arg(run.ended->text));
    }
    return run.ended->text.isEmpty() ? texts.textForInjection() : run.ended->text;
}

Task<> disconnect(RunHandle run) {
    co_await run->services.webSocket.disconnect();
    recordingLog(QStringLiteral("✅ WebSocket disconnected"));
}

void showHint(const RecordingRun& run, const QString& key) {
    run.yield(action::ShowHint{LocalizationManager::shared().t(key, {QStringLiteral("Ctrl+V")})});
}

/// The text is ready, or there is none: insert it and say how it ended.
Task<> conclude(RunHandle run) {
    QString reason = QStringLiteral("completed");
    QString hint;
    std::optional<RecordingAction> failure = run->fatalError;
    if (run->captureFailure)
        failure = action::AudioCaptureFailed{*run->captureFailure};

    if (run->text.trimmed().isEmpty()) {
        recordingLog(QStringLiteral("⚠️ Empty text, skipping local save "), LogLevel::warn);
        if (run->ended && !failure) {
            recordingLog(QStringLiteral("⚠️ Server returned 0 words for %1 audio chunks ").arg(run->observedAudioChunks),
                         LogLevel::warn);
            reason = QStringLiteral("completed(empty_result_zero_words)");
            hint = QStringLiteral("pill.nothingHeard");
        } else if (!failure) {
            recordingLog(QStringLiteral("⚠️ No text and session_ended not received for %1 audio chunks")
                             .arg(run->observedAudioChunks),
                         LogLevel::warn);
            reason = QStringLiteral("failed(empty_text_from_server)");
            failure = action::RecordingFailed{RecordingError::ConnectionLost{}};
        }
    } else if (!run->services.permissions.isAccessibilityGranted()) {
        recordingLog(QStringLiteral("❌ Accessibility permission missing - cannot inject text, saving recording"),
                     LogLevel::error);
        reason = QStringLiteral("failed(accessibility_missing_injection)");
        failure = action::RecordingFailed{RecordingError::AccessibilityPermissionDenied{}};
    } else {
        recordingLog(QStringLiteral("📝 Text to inject: %1").arg(run->text));
        const auto outcome = co_await textDelivery::deliver(run, run->text);
        run->delivery = outcome.delivery;
        if (!outcome.delivery) {
            reason = QStringLiteral("failed(text_injection)");
            failure = action::RecordingFailed{RecordingError::Unknown{outcome.error}};
        } else if (*outcome.delivery == Delivery::unconfirmed) {
            hint = QStringLiteral("pill.unconfirmed");
        } else if (*outcome.delivery == Delivery::clipboardOnly) {
            hint = QStringLiteral("pill.leftOnClipboard");
        }
    }
    if (run->isCancelled())
        co_return;
    if (run->isOffline && !failure) {
        reason = QStringLiteral("completed(offline_stop)");
        failure = action::RecordingFailed{RecordingError::ConnectionLost{run->text}};
    }
    run->yield(action::RecordingCompleted{});
    if (failure) {
        if (reason == QStringLiteral("completed"))
            reason =
                QStringLiteral("failed(%1)")
                    .arg(run->captureFailure ? QStringLiteral("microphone_lost") : QStringLiteral("fatal_stt_error"));
        run->yield(*failure);
    } else if (!hint.isEmpty()) {
        showHint(*run, hint);
    }
    run->finish(reason);
}

} // namespace

Task<> stop(RunHandle run) {
    run->isStopping = true;
    run->timing.stopRequestedAt = run->services.clock.now();
    if (wasTap(*run)) {
        run->services.audio.stopCapture();
        run->yield(action::Reset{});
        // The run ends before the socket is closed: the next press must find nobody in its way.
        run->finish(QStringLiteral("cancelled(quick_tap)"));
        co_await disconnect(run);
        co_return;
    }
    playSound(*run, SoundCue::stop);
    recordingLog(QStringLiteral("🛑 Stopping recording... "));
    co_await audioStreaming::stopAndDrain(run);

    if (run->isOffline) {
        recordingLog(QStringLiteral("✅ Audio capture stopped (offline mode)"));
    } else if (!run->fatalError) {
        bool sessionOpen = run->sessionStarted.isSet();
        if (!sessionOpen)
            sessionOpen = co_await waitForSession(run);
        if (sessionOpen)
            co_await endSession(run);
    }
    if (run->isCancelled())
        co_return;
    run->text = chooseText(*run);
    // Closing the socket takes its time and nobody waits for it: the text goes first.
    run->tasks.run(QStringLiteral("disconnect"), [run](std::stop_token) { return disconnect(run); });
    co_await conclude(run);
}

} // namespace quillo::sessionStop
