#include "Features/Recording/SessionStop.h"

#include "Core/NotificationCenter.h"
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
    co_await audioStreaming::finishSending(run);
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

/// How a dictation ended: the run reason, and what the user is shown.
struct Conclusion {
    QString reason = QStringLiteral("completed");
    QString hint; ///< key of the text
    std::optional<RecordingAction> failure;
};

/// What already went wrong on the way, whatever text there is.
Conclusion conclusionSoFar(const RecordingRun& run) {
    Conclusion conclusion;
    if (run.captureFailure) {
        conclusion.failure = action::AudioCaptureFailed{*run.captureFailure};
        conclusion.reason = QStringLiteral("failed(microphone_lost)");
    } else if (run.fatalError) {
        conclusion.failure = run.fatalError;
        conclusion.reason = QStringLiteral("failed(fatal_stt_error)");
    }
    return conclusion;
}

/// The audio waits in the queue; a failure already known keeps its own words.
void keepForLater(RecordingRun& run, Conclusion& conclusion, const QString& reason) {
    run.archive->keepPending(reason, run.archivedText());
    if (conclusion.failure)
        return;
    conclusion.reason = QStringLiteral("completed(%1)").arg(reason);
    conclusion.hint = QStringLiteral("pill.savedForLater");
}

Conclusion concludeOffline(RecordingRun& run) {
    recordingLog(QStringLiteral("🛑 Stopping OFFLINE recording — saving pending transcription "));
    auto conclusion = conclusionSoFar(run);
    run.services.metrics.track(QStringLiteral("offline_recording_stopped"));
    keepForLater(run, conclusion, QStringLiteral("offline_recording_stopped"));
    if (!conclusion.failure)
        conclusion.reason = QStringLiteral("completed(offline_stop)");
    recordingLog(QStringLiteral("✅ Offline recording saved as pending. Will be transcribed when network returns. "));
    return conclusion;
}

Conclusion concludeWithoutText(RecordingRun& run) {
    auto conclusion = conclusionSoFar(run);
    const auto chunks = run.observedAudioChunks;
    recordingLog(QStringLiteral("⚠️ Empty text, skipping local save "), LogLevel::warn);
    if (!run.archive->hasAudio()) {
        recordingLog(QStringLiteral("⚠️ No text and no audio captured (chunks=%1) — cleaning up").arg(chunks),
                     LogLevel::warn);
        run.archive->discard();
        conclusion.hint = QStringLiteral("pill.nothingHeard");
    } else if (!run.sessionStarted.isSet() && !run.fatalError) {
        recordingLog(
            QStringLiteral("🛟 session_started never arrived after stop — saving buffered audio as pending and "
                           "resetting "),
            LogLevel::warn);
        keepForLater(run, conclusion, QStringLiteral("stop_before_session_started"));
    } else if (run.ended && !run.isIncomplete) {
        recordingLog(QStringLiteral("⚠️ Server returned 0 words for %1 audio chunks — preserving audio as unrecognized "
                                    "(no auto re-transcribe; manual re-transcribe available) ")
                         .arg(chunks),
                     LogLevel::warn);
        run.archive->keepUnrecognized(QStringLiteral("empty_result_zero_words"));
        if (!conclusion.failure)
            conclusion.reason = QStringLiteral("completed(empty_result_zero_words)");
        conclusion.hint = QStringLiteral("pill.nothingHeard");
    } else if (run.fatalError) {
        keepForLater(run, conclusion, QStringLiteral("fatal_stt_error"));
        recordingLog(QStringLiteral("💾 Audio saved as pending (no text, %1 chunks) after STT error ").arg(chunks));
    } else {
        recordingLog(QStringLiteral("⚠️ No text and session_ended not received for %1 audio chunks — saving as pending "
                                    "for re-transcription ")
                         .arg(chunks),
                     LogLevel::warn);
        keepForLater(run, conclusion, QStringLiteral("empty_text_from_server"));
    }
    return conclusion;
}

/// Into the history. A text that is not the whole of what was said waits there for the rest of it.
void archiveText(RecordingRun& run, Conclusion& conclusion) {
    if (run.ended && !run.isIncomplete) {
        run.archive->complete(run.archivedText(), run.preferences.keepAudio);
        run.services.countRecording(run.ended->languageMismatch.has_value());
        NotificationCenter::shared().post(notification::transcriptionSucceeded);
        return;
    }
    run.archive->keepPending(QStringLiteral("incomplete_text"), run.archivedText());
    run.services.countRecording(false);
    if (run.fatalError)
        recordingLog(QStringLiteral("💾 Recording saved after STT error: %1").arg(run.clientRecordingId));
    if (conclusion.hint.isEmpty())
        conclusion.hint = QStringLiteral("pill.incomplete");
}

Task<Conclusion> concludeWithText(RunHandle run) {
    auto conclusion = conclusionSoFar(*run);
    if (!run->services.permissions.isAccessibilityGranted()) {
        recordingLog(QStringLiteral("❌ Accessibility permission missing - cannot inject text, saving recording"),
                     LogLevel::error);
        conclusion.reason = QStringLiteral("failed(accessibility_missing_injection)");
        conclusion.failure = action::RecordingFailed{RecordingError::AccessibilityPermissionDenied{}};
        archiveText(*run, conclusion);
        recordingLog(QStringLiteral("💾 Recording saved (no accessibility): %1 accessibility_missing")
                         .arg(run->clientRecordingId));
        co_return conclusion;
    }
    recordingLog(QStringLiteral("📝 Text to inject: %1").arg(run->text));
    const auto outcome = co_await textDelivery::deliver(run, run->text);
    run->delivery = outcome.delivery;
    if (!outcome.delivery) {
        conclusion.reason = QStringLiteral("failed(text_injection)");
        conclusion.failure = action::RecordingFailed{RecordingError::Unknown{outcome.error}};
    } else if (!outcome.hadTextField) {
        conclusion.hint = QStringLiteral("injection.noTextField");
    } else if (*outcome.delivery == Delivery::unconfirmed) {
        conclusion.hint = QStringLiteral("pill.unconfirmed");
    } else if (*outcome.delivery == Delivery::clipboardOnly) {
        conclusion.hint = QStringLiteral("pill.leftOnClipboard");
    }
    archiveText(*run, conclusion);
    co_return conclusion;
}

/// The text is ready, or there is none: insert it, put it into the history, and say how it ended.
Task<> conclude(RunHandle run) {
    Conclusion conclusion;
    if (run->isOffline)
        conclusion = concludeOffline(*run);
    else if (run->text.trimmed().isEmpty())
        conclusion = concludeWithoutText(*run);
    else
        conclusion = co_await concludeWithText(run);
    if (run->isFinished)
        co_return;
    if (run->archive->record())
        run->yield(action::ShowSavedToHistory{});
    run->yield(action::RecordingCompleted{});
    if (conclusion.failure)
        run->yield(*conclusion.failure);
    else if (run->problem)
        run->yield(action::ShowHint{*run->problem});
    else if (!conclusion.hint.isEmpty())
        showHint(*run, conclusion.hint);
    run->finish(conclusion.reason);
}

} // namespace

Task<> stop(RunHandle run) {
    run->isStopping = true;
    run->timing.stopRequestedAt = run->services.clock.now();
    if (wasTap(*run)) {
        run->services.audio.stopCapture();
        run->captureStop.request_stop();
        if (run->archive)
            run->archive->discard();
        run->yield(action::Reset{});
        // The run ends before the socket is closed: the next press must find nobody in its way.
        run->finish(QStringLiteral("cancelled(quick_tap)"));
        co_await disconnect(run);
        co_return;
    }
    playSound(*run, SoundCue::stop);
    recordingLog(QStringLiteral("🛑 Stopping recording... "));
    co_await audioStreaming::stopAndDrain(run);
    if (run->isFinished)
        co_return;
    run->archive->beginProcessing();

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
