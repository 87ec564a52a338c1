#include "Features/Recording/RecordingRun.h"

#include "Core/NotificationCenter.h"
#include "Core/UserNotice.h"

#include <QUuid>

namespace quillo {

namespace {

/// The message that the user needs although the state shows another dictation.
std::optional<UserMessage> noticeOf(const RecordingAction& action) {
    if (const auto* hint = std::get_if<action::ShowHint>(&action))
        return hint->message;
    if (const auto* failure = std::get_if<action::RecordingFailed>(&action))
        return failure->error.userMessage();
    return std::nullopt;
}

} // namespace

RecordingRun::RecordingRun(std::shared_ptr<RunContext> owner, AsyncStream<RecordingAction>::Sink actions)
    : context(std::move(owner)), services(context->services), preferences(services.preferences()),
      id(QUuid::createUuid().toString(QUuid::WithoutBraces)),
      captures({std::make_shared<CaptureChannel>(services.audio, services.clock, id)}), m_sink(std::move(actions)) {
    server.plan.audioSources = QStringList{AudioChunk::microphone};
}

QString RecordingRun::counters() const {
    const auto sum = captures.counters();
    return QStringLiteral(" observedChunks=%1 observedBytes=%2 bufferedChunks=%3")
        .arg(sum.chunks)
        .arg(sum.bytes)
        .arg(captures.bufferedChunks());
}

void RecordingRun::finish(const QString& reason) {
    if (isOver())
        return;
    phase = phase::Over{};
    recordingLog(QStringLiteral("📈 Timing snapshot: %1").arg(timing.description()));
    services.metrics.track(QStringLiteral("recording_finished"), timing.metrics(services.clock.now()));
    log.end(reason, counters());
    m_sink.finish();
    m_life.request_stop();
    if (timing.audioCaptureStartedAt)
        NotificationCenter::shared().post(notification::realTimeRecordingStopped);
    if (context->ended)
        context->ended(shared_from_this());
}

void RecordingRun::yield(RecordingAction action) const {
    if (!m_isBehind) {
        m_sink.yield(std::move(action));
        return;
    }
    if (const auto notice = noticeOf(action))
        userNotice::post(*notice);
}

void RecordingRun::launch(const QString& name, std::function<Task<>()> body) {
    context->tasks.run(name, [run = shared_from_this(), name, body = std::move(body)](std::stop_token) {
        return guard(run, name, body);
    });
}

Task<> RecordingRun::guard(std::shared_ptr<RecordingRun> run, QString name, std::function<Task<>()> body) {
    QString failure;
    try {
        co_await body();
        co_return;
    } catch (const std::exception& error) {
        failure = QString::fromUtf8(error.what());
    } catch (...) {
        failure = QStringLiteral("unknown exception");
    }
    run->context->report(name, failure);
    if (run->isOver())
        co_return;
    run->captures.close();
    // Audio that the device still delivers belongs to the recording.
    co_await run->captures.drain();
    run->endAfterFailure(failure);
}

void RecordingRun::endAfterFailure(const QString& error) {
    if (isOver())
        return;
    yield(action::RecordingFailed{RecordingError::Unknown{error}});
    finish(QStringLiteral("failed(unexpected)"));
    if (!archive)
        return;
    ArchivedText text;
    text.text = delivered.text;
    text.originalText = delivered.originalText;
    archive->keepPending(QStringLiteral("unexpected_failure"), text);
}

} // namespace quillo
