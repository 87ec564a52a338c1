#include "Features/Recording/SessionMessages.h"

#include "Core/DictatedText.h"
#include "Core/NotificationCenter.h"
#include "Core/UserNotice.h"
#include "Features/Recording/AudioUplink.h"
#include "Features/Recording/ServerLoss.h"
#include "Features/Recording/SessionRequests.h"

namespace quillo::sessionMessages {

namespace {

/// Reacts to one event; copies of it share the run.
class Reaction {
public:
    explicit Reaction(RunHandle run) : m_run(std::move(run)) {}

    void operator()(const server::SessionStarted& event) const {
        auto& run = *m_run;
        progress();
        session().id = event.sessionId;
        session().isStarted = true;
        session().decided.set();
        if (!run.timing.sessionStartedAt) {
            run.timing.sessionStartedAt = now();
            run.services.metrics.track(QStringLiteral("session_started_received"));
            recordingLog(QStringLiteral("📈 Timing snapshot: %1").arg(run.timing.description()));
        }
        run.yield(action::SessionStarted{event.sessionId, false});
        recordingLog(QStringLiteral("✅ sessionStarted action yielded"));
        if (run.stopping())
            recordingLog(QStringLiteral("🛑 Stop requested before session_started — flushing buffered audio and "
                                        "finalizing..."));
        audioUplink::send(m_run);
    }

    void operator()(const server::PartialTranscript& event) const {
        auto& run = *m_run;
        progress();
        if (!run.timing.firstPartialTranscriptAt) {
            run.timing.firstPartialTranscriptAt = now();
            run.services.metrics.track(QStringLiteral("first_partial_transcript"));
        }
        const auto& result = event.result;
        // The log holds no dictated text, only its length.
        recordingLog(QStringLiteral("📨 Partial transcript (ignored for v3 UI): %1 characters").arg(result.text.size()),
                     LogLevel::debug);
        run.yield(action::PartialTranscriptReceived{result.text, static_cast<float>(result.confidence.value_or(0)),
                                                    result.speaker, result.sourceChannel});
    }

    void operator()(const server::FinalTranscript& event) const {
        auto& run = *m_run;
        progress();
        if (!run.timing.firstFinalTranscriptAt) {
            run.timing.firstFinalTranscriptAt = now();
            run.services.metrics.track(QStringLiteral("first_final_transcript"));
        }
        recordingLog(QStringLiteral("📨 FINAL transcript (ignored for v3 UI)"));
        if (event.result.language)
            run.server.detectedLanguage = *event.result.language;
        run.yield(action::FinalTranscriptReceived{event.result});
    }

    void operator()(const server::SessionEnded& event) const {
        auto& run = *m_run;
        if (run.stopping() && !session().isStarted) {
            recordingLog(QStringLiteral("ℹ️ Ignoring the end of a session that was replaced"));
            return;
        }
        session().ended = event;
        session().over.set();
        run.yield(action::SessionEnded{event.metricsId});
        if (event.languageMismatch)
            recordingLog(
                QStringLiteral("🔍 Language mismatch check: configured=%1 detected=%2")
                    .arg(event.languageMismatch->configuredLanguage, event.languageMismatch->detectedLanguage));
        if (run.stopping()) {
            // The server ended it unasked: audio that was still on its way has no text.
            run.server.isIncomplete = run.server.isIncomplete || !session().isEndSent;
            run.timing.sessionEndedReceivedAt = now();
            return;
        }
        recordingLog(QStringLiteral("⚠️ The server ended the session while recording. Restarting session (buffering "
                                    "audio until session_started)..."),
                     LogLevel::warn);
        sessionRequests::replace(m_run);
    }

    void operator()(const server::Error& event) const {
        const bool isStopping = m_run->stopping() != nullptr;
        if (event.code == QStringLiteral("NO_SESSION"))
            handleNoSession();
        else if (event.code == QStringLiteral("STT_UNAVAILABLE"))
            refuse(event, QStringLiteral("STT provider is currently unavailable on the server. Please try again later "
                                         "or contact the administrator."));
        else if (event.code == QStringLiteral("SERVER_STOPPING"))
            warnOfServerStop();
        else if (isStopping && isOver(event.code))
            fallBackToAvailableText(event.code);
        else if (event.code == QStringLiteral("LANGUAGE_NOT_SERVED") ||
                 event.code == QStringLiteral("TRANSCRIPTION_ERROR") || (isOver(event.code) && !session().isStarted))
            refuse(event, event.message);
        else if (isStopping)
            recordingLog(QStringLiteral("ℹ️ Ignoring server error during stopping: %1").arg(event.message));
        else
            recordingLog(QStringLiteral("⚠️ Server error %1: %2").arg(event.code, event.message), LogLevel::warn);
    }

    void operator()(const server::LanguageDetected& event) const {
        progress();
        recordingLog(QStringLiteral("📨 Language detected: %1").arg(event.language));
        m_run->server.detectedLanguage = event.language;
    }

    void operator()(const server::ConnectionLost& event) const { serverLoss::goOffline(m_run, event.error); }

    void operator()(const server::CommandDetected& event) const {
        progress();
        recordingLog(QStringLiteral("📨 Command detected: '%1'").arg(dictated(event.commandText)));
        m_run->yield(action::CommandDetected{event.commandText, event.commandType});
    }

    void operator()(const server::CommandProcessing&) const {
        progress();
        recordingLog(QStringLiteral("📨 Command processing..."));
        session().isProcessingCommand = true;
        m_run->yield(action::CommandProcessing{});
    }

    void operator()(const server::CommandResult& event) const {
        progress();
        recordingLog(QStringLiteral("📨 Command result: type=%1").arg(event.presetName.value_or(QString())));
        session().isProcessingCommand = false;
        session().command = event;
        m_run->yield(action::CommandResult{event.processedText, event.originalText});
    }

    /// The server reports progress while it finishes a long dictation.
    void operator()(const server::Pong&) const { progress(); }

    // Not relevant for a dictation.
    void operator()(const server::Connected&) const {}
    void operator()(const server::Unknown&) const {}
    // For meetings, which are not recorded yet.
    void operator()(const server::MeetingModeActivated&) const {}
    void operator()(const server::MeetingTextUpdate&) const {}
    void operator()(const server::DiarizationComplete&) const {}
    void operator()(const server::DiarizationFailed&) const {}

private:
    [[nodiscard]] Clock::Instant now() const { return m_run->services.clock.now(); }
    [[nodiscard]] ServerSession& session() const { return *m_run->server.session; }
    void progress() const { session().lastProgressAt = now(); }

    /// The user may still finish the sentence; the pill shows the recording meanwhile.
    static void warnOfServerStop() {
        recordingLog(QStringLiteral("⚠️ The server is about to stop"), LogLevel::warn);
        userNotice::post({QStringLiteral("error.serverStopping")});
    }

    /// After these codes the server's session has ended without a result.
    static bool isOver(const QString& code) {
        return code == QStringLiteral("INTERNAL_ERROR") || code == QStringLiteral("TRANSCRIPTION_ERROR");
    }

    void handleNoSession() const {
        // Restart only once: every chunk already sent causes another such error.
        if (!session().isStarted) {
            recordingLog(QStringLiteral("ℹ️ Ignoring NO_SESSION before session_started"));
            return;
        }
        if (m_run->stopping()) {
            // The server has no session to end, so do not wait for its result.
            recordingLog(QStringLiteral("ℹ️ Ignoring server error during stopping: NO_SESSION"));
            m_run->server.isIncomplete = m_run->server.isIncomplete || !session().ended;
            session().over.set();
            return;
        }
        recordingLog(QStringLiteral("⚠️ Server returned NO_SESSION mid-session. Restarting session (buffering audio "
                                    "until session_started)..."),
                     LogLevel::warn);
        sessionRequests::replace(m_run);
    }

    void fallBackToAvailableText(const QString& code) const {
        recordingLog(QStringLiteral("⚠️ Server reported %1 during finalization — session_ended will not arrive; "
                                    "falling back to recovery ")
                         .arg(code),
                     LogLevel::warn);
        session().decided.set();
        session().over.set();
    }

    /// The recogniser cannot serve this dictation. The recording continues and is transcribed later.
    void refuse(const server::Error& event, const QString& message) const {
        recordingLog(
            QStringLiteral("🛑 All services stopped after fatal STT error: %1 (%2)").arg(event.message, event.code),
            LogLevel::error);
        serverLoss::goOffline(m_run, message,
                              ServerRefusal{.error = RecordingError::TranscriptionFailed{message, event.code},
                                            .reason = QStringLiteral("fatal_stt_error(%1)").arg(event.code),
                                            .pendingReason = QStringLiteral("fatal_stt_error")});
    }

    RunHandle m_run;
};

Task<> receive(RunHandle run, std::shared_ptr<AsyncStream<ServerMessage>> stream) {
    const Reaction react(run);
    while (auto event = co_await stream->next(run->token())) {
        // The text is chosen by then, and the connection may be the next dictation's.
        if (!run->server.isReleased)
            std::visit(react, *event);
    }
    if (!run->server.isReleased)
        serverLoss::goOffline(run, QStringLiteral("the events ended"));
    serverLoss::endWaits(*run);
}

} // namespace

void begin(const RunHandle& run, AsyncStream<ServerMessage> stream) {
    auto shared = std::make_shared<AsyncStream<ServerMessage>>(std::move(stream));
    run->launch(QStringLiteral("message loop"), [run, shared] { return receive(run, shared); });
}

} // namespace quillo::sessionMessages
