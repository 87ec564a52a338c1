#include "Features/Recording/RecordingSideEffects.h"

#include "Features/Recording/AudioStreaming.h"
#include "Features/Recording/SessionStart.h"
#include "Features/Recording/SessionStop.h"
#include "Features/Recording/StartStopSounds.h"

namespace quillo {

namespace {

void reportEscaped(const QString& name, const QString& error) {
    recordingLog(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error);
}

} // namespace

RecordingSideEffects::RecordingSideEffects(RecordingServices services)
    : m_services(std::move(services)), m_tasks(reportEscaped) {}

RecordingSideEffects::~RecordingSideEffects() {
    if (isBusy())
        abandonRun(QStringLiteral("cancelled(quit)"));
}

bool RecordingSideEffects::isBusy() const { return m_run && !m_run->isFinished; }

bool RecordingSideEffects::handles(const RecordingAction& action) const {
    // Levels and chunks come many times a second and lead to nothing.
    return !std::holds_alternative<action::AudioChunkCaptured>(action) &&
           !std::holds_alternative<action::AudioLevelUpdated>(action) &&
           !std::holds_alternative<action::SystemAudioLevelUpdated>(action) &&
           !std::holds_alternative<action::SetHovering>(action);
}

Task<ActionStream<RecordingAction>> RecordingSideEffects::handle(RecordingAction action, RecordingState state) {
    if (std::holds_alternative<action::StartRecording>(action))
        co_return handleStartRecording(state);
    if (std::holds_alternative<action::StopRecording>(action))
        handleStopRecording(state);
    else if (std::holds_alternative<action::CancelRecording>(action))
        co_return handleCancelRecording();
    else if (isBusy() && !state.status.isActive() && !state.status.is<RecordingState::Processing>())
        // Something else ended the dictation (a reset, an error): a microphone must never stay open behind it.
        abandonRun(QStringLiteral("cancelled(%1)").arg(actionName(action)));
    co_return std::nullopt;
}

ActionStream<RecordingAction> RecordingSideEffects::handleStartRecording(const RecordingState& state) {
    if (isBusy() && m_run->startTime != state.startTime && state.status.is<RecordingState::Connecting>())
        // The state has gone on to another dictation; what still runs of the one before gives way.
        abandonRun(QStringLiteral("cancelled(superseded)"));
    if (isBusy()) {
        recordingLog(QStringLiteral("⚠️ startRecording already in progress, ignoring duplicate call"), LogLevel::warn);
        return std::nullopt;
    }
    if (!state.status.is<RecordingState::Connecting>())
        return std::nullopt;
    auto [stream, sink] = AsyncStream<RecordingAction>::make(m_services.clock.executor());
    auto run = std::make_shared<RecordingRun>(m_services, m_tasks, sink);
    m_run = run;
    run->startTime = state.startTime;
    run->timing.recordingRequestedAt = m_services.clock.now();
    run->clientRecordingId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    run->log.begin(run->clientRecordingId.left(8),
                   QStringLiteral(" sysAudioAllowed=false is_first_recording=%1")
                       .arg(run->preferences.isFirstRecording ? QStringLiteral("true") : QStringLiteral("false")));
    m_tasks.run(QStringLiteral("start recording"), [run](std::stop_token) {
        return run->preferences.demoMode ? sessionStart::startDemo(run) : sessionStart::start(run);
    });
    sink.onTermination([this, weak = std::weak_ptr(run)](StreamTermination) {
        if (const auto ended = weak.lock())
            m_lastReport = RecordingReport{ended->clientRecordingId,
                                           ended->log.endReason(),
                                           ended->text,
                                           ended->delivery,
                                           ended->timing.metrics(m_services.clock.now()),
                                           ended->timing.firstSampleAt};
    });
    return std::move(stream);
}

void RecordingSideEffects::handleStopRecording(const RecordingState& state) {
    if (!isBusy() || m_run->isStopping || !state.status.is<RecordingState::Processing>())
        return;
    auto run = m_run;
    if (run->preferences.demoMode) {
        run->yield(action::FinalTranscriptReceived{{.text = QStringLiteral("This is a demo mode transcription.")}});
        run->yield(action::SessionEnded{QStringLiteral("demo_metrics_001")});
        run->yield(action::RecordingCompleted{});
        run->finish(QStringLiteral("completed(demo)"));
        return;
    }
    m_tasks.run(QStringLiteral("stop recording"), [run](std::stop_token) { return sessionStop::stop(run); });
}

ActionStream<RecordingAction> RecordingSideEffects::handleCancelRecording() {
    if (!isBusy())
        return std::nullopt;
    recordingLog(QStringLiteral("🧹 Cancelling startRecording task "));
    recordingLog(QStringLiteral("🚫 Cancelling recording... "));
    playSound(*m_run, SoundCue::cancel);
    abandonRun(QStringLiteral("cancelled(user_cancel)"), Remains::discarded);
    recordingLog(QStringLiteral("🚫 Recording cancelled successfully "));
    return AsyncStream<RecordingAction>::of(m_services.clock.executor(), {action::ShowCancelledMessage{}});
}

namespace {

/// The last chunks are still on their way when a capture is stopped; they belong to the recording like the others.
Task<> keepRemains(RunHandle run, QString reason) {
    co_await audioStreaming::drain(run);
    run->archive->keepPending(reason);
}

} // namespace

Task<> RecordingSideEffects::shutDown() {
    if (!isBusy())
        co_return;
    const auto run = m_run;
    abandonRun(QStringLiteral("cancelled(quit)"));
    if (run->archive)
        co_await keepRemains(run, QStringLiteral("quit"));
}

void RecordingSideEffects::abandonRun(const QString& reason, Remains remains) {
    const auto run = m_run;
    m_services.audio.stopCapture();
    if (remains == Remains::discarded) {
        ++run->captureGeneration;
        run->captureStop.request_stop();
        if (run->archive)
            run->archive->discard();
    }
    run->finish(reason);
    if (remains == Remains::kept && run->archive)
        m_tasks.run(QStringLiteral("keep remains"),
                    [run, reason](std::stop_token) { return keepRemains(run, reason); });
    m_tasks.run(QStringLiteral("disconnect"),
                [run](std::stop_token) -> Task<> { co_await run->services.webSocket.disconnect(); });
}

} // namespace quillo
