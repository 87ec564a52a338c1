#include "Features/Recording/Conclusion.h"

#include "Core/DictatedText.h"
#include "Core/NotificationCenter.h"
#include "Features/Recording/TextDelivery.h"

namespace quillo::conclusion {

namespace {

/// The end of a dictation: the run reason and the message to the user.
struct Ending {
    QString reason = QStringLiteral("completed");
    UserMessage hint;
    std::optional<RecordingError> failure;
};

/// A failure that already happened, whatever text there is.
Ending endingSoFar(const RecordingRun& run) {
    Ending ending;
    if (run.stopping() && run.stopping()->cause == StopCause::microphoneLost) {
        ending.failure = RecordingError::AudioCaptureFailed{run.stopping()->captureFailure};
        ending.reason = QStringLiteral("failed(microphone_lost)");
    } else if (run.server.refusal) {
        ending.failure = run.server.refusal->error;
        ending.reason = run.server.refusal->reason;
    }
    return ending;
}

/// The audio waits in the queue; a known failure keeps its own message.
void keepForLater(RecordingRun& run, Ending& ending, const QString& reason) {
    run.archive->keepPending(reason, archivedText(run));
    if (ending.failure)
        return;
    ending.reason = QStringLiteral("completed(%1)").arg(reason);
    ending.hint = {QStringLiteral("pill.savedForLater")};
}

Ending concludeOffline(RecordingRun& run) {
    recordingLog(QStringLiteral("🛑 Stopping OFFLINE recording — saving pending transcription "));
    auto ending = endingSoFar(run);
    run.services.metrics.track(QStringLiteral("offline_recording_stopped"));
    keepForLater(run, ending,
                 run.server.refusal ? run.server.refusal->pendingReason : QStringLiteral("offline_recording_stopped"));
    if (!ending.failure)
        ending.reason = QStringLiteral("completed(offline_stop)");
    recordingLog(QStringLiteral("✅ Offline recording saved as pending. Will be transcribed when network returns. "));
    return ending;
}

UserMessage nothingHeard(const RecordingRun& run) {
    if (run.microphone->counters().hasSound)
        return {QStringLiteral("pill.nothingHeard")};
    return {QStringLiteral("pill.microphoneMuted"), {run.services.audio.currentDeviceName()}};
}

Ending concludeWithoutText(RecordingRun& run) {
    auto ending = endingSoFar(run);
    const auto chunks = run.microphone->counters().chunks;
    recordingLog(QStringLiteral("⚠️ Empty text, skipping local save "), LogLevel::warn);
    if (!run.archive->hasAudio()) {
        recordingLog(QStringLiteral("⚠️ No text and no audio captured (chunks=%1) — cleaning up").arg(chunks),
                     LogLevel::warn);
        run.archive->discard();
        ending.hint = nothingHeard(run);
    } else if (!run.server.session->isStarted && !run.server.refusal) {
        recordingLog(
            QStringLiteral("🛟 session_started never arrived after stop — saving buffered audio as pending and "
                           "resetting "),
            LogLevel::warn);
        keepForLater(run, ending, QStringLiteral("stop_before_session_started"));
    } else if (run.server.session->ended && !run.server.isIncomplete) {
        recordingLog(QStringLiteral("⚠️ Server returned 0 words for %1 audio chunks — preserving audio as unrecognized "
                                    "(no auto re-transcribe; manual re-transcribe available) ")
                         .arg(chunks),
                     LogLevel::warn);
        run.archive->keepUnrecognized(QStringLiteral("empty_result_zero_words"));
        if (!ending.failure)
            ending.reason = QStringLiteral("completed(empty_result_zero_words)");
        ending.hint = nothingHeard(run);
    } else if (run.server.refusal) {
        keepForLater(run, ending, run.server.refusal->pendingReason);
        recordingLog(QStringLiteral("💾 Audio saved as pending (no text, %1 chunks) after STT error ").arg(chunks));
    } else {
        recordingLog(QStringLiteral("⚠️ No text and session_ended not received for %1 audio chunks — saving as pending "
                                    "for re-transcription ")
                         .arg(chunks),
                     LogLevel::warn);
        keepForLater(run, ending, QStringLiteral("empty_text_from_server"));
    }
    return ending;
}

/// Stores the result in the history. An incomplete text waits there for the rest.
void archiveText(RecordingRun& run, Ending& ending) {
    if (run.server.session->ended && !run.server.isIncomplete) {
        run.archive->complete(archivedText(run), run.preferences.keepAudio);
        run.services.countRecording(run.server.session->ended->languageMismatch.has_value());
        NotificationCenter::shared().post(notification::transcriptionSucceeded);
        return;
    }
    run.archive->keepPending(QStringLiteral("incomplete_text"), archivedText(run));
    run.services.countRecording(false);
    if (run.server.refusal)
        recordingLog(QStringLiteral("💾 Recording saved after STT error: %1").arg(run.id));
    if (ending.hint.isEmpty())
        ending.hint = {QStringLiteral("pill.incomplete")};
}

Task<Ending> concludeWithText(RunHandle run) {
    auto ending = endingSoFar(*run);
    if (run->delivered.isWithheld) {
        if (!ending.failure)
            ending.reason = QStringLiteral("completed(user_left)");
        ending.hint = {QStringLiteral("pill.userLeft")};
        archiveText(*run, ending);
        co_return ending;
    }
    if (!run->services.permissions.isAccessibilityGranted()) {
        recordingLog(QStringLiteral("❌ Accessibility permission missing - cannot inject text, saving recording"),
                     LogLevel::error);
        ending.reason = QStringLiteral("failed(accessibility_missing_injection)");
        ending.failure = RecordingError::AccessibilityPermissionDenied{};
        archiveText(*run, ending);
        recordingLog(QStringLiteral("💾 Recording saved (no accessibility): %1 accessibility_missing").arg(run->id));
        co_return ending;
    }
    recordingLog(QStringLiteral("📝 Text to inject: %1").arg(dictated(run->delivered.text)));
    const auto outcome = co_await textDelivery::deliver(run);
    if (run->isOver()) // cancelled or ended meanwhile, which has settled the archive
        co_return ending;
    const auto how = run->delivered.how;
    if (outcome.failure) {
        ending.reason = QStringLiteral("failed(text_injection)");
        ending.failure = outcome.failure;
    } else if (!outcome.hadTextField) {
        ending.hint = {QStringLiteral("injection.noTextField")};
    } else if (how == Delivery::unconfirmed) {
        ending.hint = {QStringLiteral("pill.unconfirmed")};
    } else if (how == Delivery::clipboardOnly) {
        ending.hint = {QStringLiteral("pill.leftOnClipboard"), {QStringLiteral("Ctrl+V")}};
    }
    archiveText(*run, ending);
    co_return ending;
}

} // namespace

void chooseText(RecordingRun& run) {
    const auto& link = run.server;
    // When offline, the text was taken when the connection was lost. Without a turn, or after it, the connection's
    // texts belong to another dictation.
    if (link.isOffline || !link.turnAt || link.isReleased)
        return;
    const auto chosen = link.earlier.joined(link.session->bestText(run.services.webSocket.texts()));
    run.delivered.text = chosen.text;
    run.delivered.originalText = chosen.original;
    if (chosen.original.isEmpty())
        return;
    recordingLog(QStringLiteral("💾 Original text saved (before AI processing)"));
    recordingLog(QStringLiteral("📝 [Original]\\n%1").arg(dictated(chosen.original)));
    recordingLog(QStringLiteral("✨ [AI Processed]\\n%1").arg(dictated(chosen.text)));
}

ArchivedText archivedText(const RecordingRun& run) {
    ArchivedText archived{.text = run.delivered.text,
                          .originalText = run.delivered.originalText,
                          .sessionId = run.server.session->id,
                          .language = run.server.detectedLanguage,
                          .metricsId = std::nullopt,
                          .mismatch = std::nullopt};
    if (const auto& ended = run.server.session->ended) {
        archived.metricsId = ended->metricsId;
        archived.mismatch = ended->languageMismatch;
        if (ended->languageDetected)
            archived.language = *ended->languageDetected;
    }
    return archived;
}

Task<> conclude(RunHandle run) {
    Ending ending;
    if (run->server.isOffline)
        ending = concludeOffline(*run);
    else if (run->delivered.text.trimmed().isEmpty())
        ending = concludeWithoutText(*run);
    else
        ending = co_await concludeWithText(run);
    if (run->isOver())
        co_return;
    if (run->archive->record())
        run->yield(action::ShowSavedToHistory{});
    run->yield(action::RecordingCompleted{});
    if (ending.failure)
        run->yield(action::RecordingFailed{*ending.failure});
    else if (run->archive->problem())
        run->yield(action::ShowHint{*run->archive->problem()});
    else if (!ending.hint.isEmpty())
        run->yield(action::ShowHint{ending.hint});
    // Show it only now: a window that opens during the dictation would take the focus from the target.
    if (run->server.refusal && run->server.refusal->needsSignIn)
        NotificationCenter::shared().post(notification::authRequired);
    run->finish(ending.reason);
}

} // namespace quillo::conclusion
