#include "Features/Recording/SessionMessages.h"

#include "Core/Overloaded.h"
#include "Features/Recording/AudioStreaming.h"
#include "Features/Recording/SessionConnector.h"

namespace quillo::sessionMessages {

namespace {

/// Asks for a new session. A request that cannot be sent is no end: the connection's own end is reported by its events.
Task<> restartSession(RunHandle run) {
    try {
        co_await sessionConnector::requestSession(run);
    } catch (const WebSocketError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to restart the session: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
    }
}

/// Reacts to one event; copies of it share the run.
class Reaction {
public:
    explicit Reaction(RunHandle run) : m_run(std::move(run)) {}

    void operator()(const server::SessionStarted& event) const {
        auto& run = *m_run;
        run.currentSessionId = event.sessionId;
        if (!run.timing.sessionStartedAt) {
            run.timing.sessionStartedAt = now();
            run.services.metrics.track(QStringLiteral("session_started_received"));
            recordingLog(QStringLiteral("📈 Timing snapshot: %1").arg(run.timing.description()));
        }
        run.yield(action::SessionStarted{event.sessionId, false});
        recordingLog(QStringLiteral("✅ sessionStarted action yielded"));
        run.sessionStarted.set();
        run.tasks.run(QStringLiteral("flush backlog"),
                      [handle = m_run](std::stop_token) { return audioStreaming::flush(handle); });
    }

    void operator()(const server::PartialTranscript& event) const {
        auto& run = *m_run;
        if (!run.timing.firstPartialTranscriptAt) {
            run.timing.firstPartialTranscriptAt = now();
            run.services.metrics.track(QStringLiteral("first_partial_transcript"));
        }
        const auto& result = event.result;
        run.yield(action::PartialTranscriptReceived{result.text, static_cast<float>(result.confidence.value_or(0)),
                                                    result.speaker, result.sourceChannel});
    }

    void operator()(const server::FinalTranscript& event) const {
        auto& run = *m_run;
        if (!run.timing.firstFinalTranscriptAt) {
            run.timing.firstFinalTranscriptAt = now();
            run.services.metrics.track(QStringLiteral("first_final_transcript"));
        }
        if (event.result.language)
            run.detectedLanguage = *event.result.language;
        run.yield(action::FinalTranscriptReceived{event.result});
    }

    void operator()(const server::SessionEnded& event) const {
        auto& run = *m_run;
        run.timing.sessionEndedReceivedAt = now();
        run.ended = event;
        run.yield(action::SessionEnded{event.metricsId});
        if (event.languageMismatch)
            recordingLog(
                QStringLiteral("🔍 Language mismatch check: configured=%1 detected=%2")
                    .arg(event.languageMismatch->configuredLanguage, event.languageMismatch->detectedLanguage));
        run.sessionEnded.set();
    }

    void operator()(const server::Error& event) const {
        if (event.code == QStringLiteral("NO_SESSION"))
            handleNoSession();
        else if (event.code == QStringLiteral("STT_UNAVAILABLE"))
            fail(event.code, QStringLiteral("STT provider is currently unavailable on the server. Please try again "
                                            "later or contact the administrator."));
        else if (event.code == QStringLiteral("TRANSCRIPTION_ERROR") && !m_run->isStopping)
            fail(event.code, event.message);
        else if (event.code == QStringLiteral("INTERNAL_ERROR") && m_run->isStopping)
            fallBackToAvailableText();
        else if (m_run->isStopping)
            recordingLog(QStringLiteral("ℹ️ Ignoring server error during stopping: %1").arg(event.message));
        else
            recordingLog(QStringLiteral("⚠️ Server error %1: %2").arg(event.code, event.message), LogLevel::warn);
    }

    void operator()(const server::LanguageDetected& event) const {
        recordingLog(QStringLiteral("📨 Language detected: %1").arg(event.language));
        m_run->detectedLanguage = event.language;
    }

    void operator()(const server::ConnectionLost& event) const {
        auto& run = *m_run;
        run.connectionGone.set();
        if (run.isStopping) {
            recordingLog(QStringLiteral("ℹ️ Ignoring connectionLost - already stopping gracefully "));
            run.sessionEnded.set();
            return;
        }
        if (run.isOffline) {
            recordingLog(QStringLiteral("ℹ️ Ignoring connectionLost - already in offline mode "));
            return;
        }
        recordingLog(QStringLiteral("⚠️ Connection lost — switching to OFFLINE recording mode. Audio continues writing "
                                    "to disk. "),
                     LogLevel::warn);
        run.isOffline = true;
        run.sendsDirectly = false;
        const auto recovered = run.services.webSocket.texts().bestAvailableText();
        if (!recovered.isEmpty())
            recordingLog(QStringLiteral("📨 Recovered text: %1").arg(recovered));
        run.yield(action::ConnectionLost{event.error, recovered});
        run.yield(action::SwitchedToOffline{});
    }

    void operator()(const server::CommandDetected& event) const {
        recordingLog(QStringLiteral("📨 Command detected: '%1'").arg(event.commandText));
        m_run->yield(action::CommandDetected{event.commandText, event.commandType});
    }

    void operator()(const server::CommandProcessing&) const {
        recordingLog(QStringLiteral("📨 Command processing..."));
        m_run->isCommandProcessing = true;
        m_run->yield(action::CommandProcessing{});
    }

    void operator()(const server::CommandResult& event) const {
        recordingLog(QStringLiteral("📨 Command result: type=%1").arg(event.presetName.value_or(QString())));
        m_run->isCommandProcessing = false;
        m_run->yield(action::CommandResult{event.processedText, event.originalText});
    }

    // Meetings, and what needs no reaction here.
    template <class Other>
    void operator()(const Other&) const {}

private:
    [[nodiscard]] Clock::Instant now() const { return m_run->services.clock.now(); }

    void handleNoSession() const {
        auto& run = *m_run;
        if (!run.sessionStarted.isSet()) {
            recordingLog(QStringLiteral("ℹ️ Ignoring NO_SESSION before session_started"));
            return;
        }
        if (run.isStopping) {
            // The server has nothing to end: waiting for its last word would be in vain.
            recordingLog(QStringLiteral("ℹ️ Ignoring server error during stopping: NO_SESSION"));
            run.sessionEnded.set();
            return;
        }
        recordingLog(QStringLiteral("⚠️ Server returned NO_SESSION mid-session. Restarting session (buffering audio "
                                    "until session_started)..."),
                     LogLevel::warn);
        run.sendsDirectly = false;
        // What the server has had is gone with its session.
        run.isIncomplete = run.isIncomplete || run.chunksSent > 0;
        run.tasks.run(QStringLiteral("restart session"),
                      [handle = m_run](std::stop_token) { return restartSession(handle); });
    }

    void fallBackToAvailableText() const {
        recordingLog(QStringLiteral("⚠️ Server reported INTERNAL_ERROR during finalization — session_ended will not "
                                    "arrive; falling back to recovery "),
                     LogLevel::warn);
        m_run->serverErrorDuringFinalization = true;
        m_run->sessionEnded.set();
    }

    /// The recogniser is out of order: nothing more comes of this session. The stop delivers what there is and then
    /// shows the failure.
    void fail(const QString& code, const QString& message) const {
        auto& run = *m_run;
        if (run.fatalError)
            return;
        recordingLog(QStringLiteral("🛑 All services stopped after fatal STT error: %1 (%2)").arg(message, code),
                     LogLevel::error);
        run.fatalError = action::TranscriptionError{message};
        run.connectionGone.set();
        run.sessionEnded.set();
        if (!run.isStopping)
            run.yield(action::StopRecording{});
    }

    RunHandle m_run;
};

Task<> receive(RunHandle run, std::shared_ptr<AsyncStream<ServerMessage>> stream) {
    const Reaction react(run);
    while (auto event = co_await stream->next(run->token())) {
        run->lastServerMessageAt = run->services.clock.now();
        std::visit(react, *event);
    }
    run->connectionGone.set();
    run->sessionEnded.set();
}

} // namespace

void begin(const RunHandle& run, AsyncStream<ServerMessage> stream) {
    auto shared = std::make_shared<AsyncStream<ServerMessage>>(std::move(stream));
    run->tasks.run(QStringLiteral("message loop"), [run, shared](std::stop_token) { return receive(run, shared); });
}

} // namespace quillo::sessionMessages
