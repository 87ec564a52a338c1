#include "Features/Recording/RecordingSideEffects.h"

#include "Core/Overloaded.h"
#include "Features/Recording/ConnectionTurn.h"
#include "Features/Recording/RunAbandonment.h"
#include "Features/Recording/SessionStart.h"
#include "Features/Recording/SessionStop.h"
#include "Features/Recording/StartStopSounds.h"

namespace quillo {

namespace {

/// Draining a microphone is limited to 2 s; this covers the writes after it.
constexpr Clock::Duration keepingLimit = std::chrono::seconds(4);

} // namespace

void RecordingSideEffects::logFailure(const QString& name, const QString& error) {
    recordingLog(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error);
}

RecordingSideEffects::RecordingSideEffects(RecordingServices services, TaskRunner::Report report)
    : m_context(std::make_shared<RunContext>(std::move(services), std::move(report))) {
    m_context->ended = [this](const RunHandle& run) {
        m_lastReport = RecordingReport{run->id,
                                       run->log.endReason(),
                                       run->delivered.text,
                                       run->delivered.how,
                                       run->timing.metrics(run->services.clock.now()),
                                       run->timing.firstSampleAt};
        connectionTurn::release(run);
    };
}

RecordingSideEffects::~RecordingSideEffects() {
    for (const auto& run : unfinished())
        runAbandonment::keep(run, QStringLiteral("cancelled(quit)"));
    m_context->ended = nullptr;
    m_context->tasks.cancelAll();
}

std::vector<RunHandle> RecordingSideEffects::unfinished() const {
    auto runs = m_behind;
    if (m_run)
        runs.push_back(m_run);
    std::erase_if(runs, [](const RunHandle& run) { return run->isOver(); });
    return runs;
}

bool RecordingSideEffects::isBusy() const { return !unfinished().empty(); }

Task<ActionStream<RecordingAction>> RecordingSideEffects::handle(RecordingEffect effect) {
    ActionStream<RecordingAction> actions;
    std::visit(Overloaded{
                   [&](const effect::BeginDictation& begun) { actions = begin(begun.askedAt); },
                   [&](const effect::EndDictation&) { end(); },
                   [&](const effect::InterruptDictation&) { interrupt(); },
                   [&](const effect::CancelDictation&) { actions = cancel(); },
                   [&](const effect::LeaveDictation& left) { leave(left.cause); },
               },
               effect);
    co_return actions;
}

ActionStream<RecordingAction> RecordingSideEffects::begin(std::optional<Clock::Instant> askedAt) {
    if (m_isShuttingDown) {
        recordingLog(QStringLiteral("ℹ️ No recording starts while the program ends"));
        return AsyncStream<RecordingAction>::of(m_context->services.clock.executor(), {action::Reset{}});
    }
    auto [stream, sink] = AsyncStream<RecordingAction>::make(m_context->services.clock.executor());
    // There is only one microphone, so a dictation that still uses it releases it.
    if (m_run && m_run->microphone->isOpen())
        runAbandonment::keep(m_run, QStringLiteral("cancelled(superseded)"));
    m_behind = unfinished();
    for (const auto& run : m_behind)
        run->fallBehind();
    auto run = std::make_shared<RecordingRun>(m_context, sink);
    if (m_run && !m_run->server.released.isSet())
        run->server.before = m_run->server.released;
    m_run = run;
    run->timing.recordingRequestedAt = askedAt.value_or(m_context->services.clock.now());
    run->log.begin(run->id.left(8),
                   QStringLiteral(" sysAudioAllowed=false is_first_recording=%1")
                       .arg(run->preferences.isFirstRecording ? QStringLiteral("true") : QStringLiteral("false")));
    run->launch(QStringLiteral("start recording"),
                [run] { return run->preferences.demoMode ? sessionStart::startDemo(run) : sessionStart::start(run); });
    return std::move(stream);
}

void RecordingSideEffects::end() {
    if (!m_run || m_run->isOver())
        return;
    if (m_run->preferences.demoMode)
        sessionStop::endDemo(m_run);
    else
        sessionStop::request(m_run, StopCause::person);
}

void RecordingSideEffects::interrupt() {
    for (const auto& run : unfinished()) {
        recordingLog(QStringLiteral("🔒 The user has left — the text goes to the history only"));
        run->delivered.isWithheld = true;
    }
    end();
}

ActionStream<RecordingAction> RecordingSideEffects::cancel() {
    if (!m_run || m_run->isOver())
        return std::nullopt;
    recordingLog(QStringLiteral("🧹 Cancelling startRecording task "));
    recordingLog(QStringLiteral("🚫 Cancelling recording... "));
    playSound(*m_run, SoundCue::cancel);
    runAbandonment::cancel(m_run);
    recordingLog(QStringLiteral("🚫 Recording cancelled successfully "));
    return AsyncStream<RecordingAction>::of(m_context->services.clock.executor(), {action::ShowCancelledMessage{}});
}

void RecordingSideEffects::leave(const QString& cause) {
    // A dictation with a closed microphone may keep waiting for its text while the state is idle.
    if (m_run && !m_run->isOver() && !m_run->stopping())
        runAbandonment::keep(m_run, QStringLiteral("cancelled(%1)").arg(cause));
}

Task<> RecordingSideEffects::shutDown() {
    m_isShuttingDown = true;
    for (const auto& run : unfinished())
        co_await runAbandonment::keepAndWait(run, QStringLiteral("cancelled(quit)"));
    // A dictation cancelled a moment ago may still be storing its audio.
    for (const auto& kept : std::vector(m_context->keeping))
        co_await kept.wait(m_context->services.clock, keepingLimit);
}

} // namespace quillo
