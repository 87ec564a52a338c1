#pragma once

#include "Features/Recording/RecordingEffect.h"
#include "Features/Recording/RecordingRun.h"
#include "Features/Recording/RecordingState.h"

#include <QVariantMap>

#include <vector>

namespace quillo {

/// How the latest dictation ended, for the status command and for inserting the text again.
struct RecordingReport {
    QString runId;
    QString reason; ///< run reason, such as "completed" or "cancelled(user_cancel)"
    QString text;
    std::optional<Delivery> delivery;
    QVariantMap timings; ///< milliseconds
    std::optional<Clock::Instant> firstSampleAt;
};

/// Performs the work of the dictations: microphone, session, delivery. One dictation records at a time; earlier ones
/// may still wait for their text in the background. Main thread.
class RecordingSideEffects final : public SideEffectHandler<RecordingEffect, RecordingAction> {
public:
    /// `report` receives unexpected failures, after their dictation has been ended. By default they are logged.
    explicit RecordingSideEffects(RecordingServices services, TaskRunner::Report report = logFailure);
    ~RecordingSideEffects() override;

    Task<ActionStream<RecordingAction>> handle(RecordingEffect effect) override;

    /// Ends all running dictations and returns when their audio and that of earlier ones is on the disk. No dictation
    /// starts afterwards; for the end of the program.
    Task<> shutDown();
    /// True while a microphone, a socket or a delivery of a dictation is in use.
    [[nodiscard]] bool isBusy() const;
    [[nodiscard]] const std::optional<RecordingReport>& lastReport() const { return m_lastReport; }

private:
    static void logFailure(const QString& name, const QString& error);
    ActionStream<RecordingAction> begin(std::optional<Clock::Instant> askedAt);
    void end();
    void interrupt();
    ActionStream<RecordingAction> cancel();
    void leave(const QString& cause);
    /// All dictations that have not ended, the latest last.
    [[nodiscard]] std::vector<RunHandle> unfinished() const;

    std::shared_ptr<RunContext> m_context;
    RunHandle m_run;                 ///< the latest
    bool m_isShuttingDown = false;   ///< no dictation starts any more
    std::vector<RunHandle> m_behind; ///< earlier ones that have not ended yet
    std::optional<RecordingReport> m_lastReport;
};

} // namespace quillo
