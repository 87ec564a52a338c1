#pragma once

#include "Architecture/SideEffect.h"
#include "Features/Recording/RecordingRun.h"
#include "Features/Recording/RecordingState.h"

#include <QVariantMap>

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

/// Does the work of a dictation: microphone, session, delivery. One dictation at a time; main thread.
class RecordingSideEffects final : public SideEffectHandler<RecordingState, RecordingAction> {
public:
    explicit RecordingSideEffects(RecordingServices services);
    ~RecordingSideEffects() override;

    [[nodiscard]] bool handles(const RecordingAction& action) const override;
    Task<ActionStream<RecordingAction>> handle(RecordingAction action, RecordingState state) override;

    /// Ends the dictation under way, if any, and returns when what was said is on the disk; for the program's own end.
    Task<> shutDown();
    /// True while a microphone, a socket or a delivery of a dictation is in use.
    [[nodiscard]] bool isBusy() const;
    [[nodiscard]] const std::optional<RecordingReport>& lastReport() const { return m_lastReport; }

private:
    ActionStream<RecordingAction> handleStartRecording(const RecordingState& state);
    void handleStopRecording(const RecordingState& state);
    ActionStream<RecordingAction> handleCancelRecording();
    /// What becomes of the audio of a run that is given up.
    enum class Remains { kept, discarded };
    /// Ends a run that the state has left behind, without a word to the user.
    void abandonRun(const QString& reason, Remains remains = Remains::kept);

    RecordingServices m_services;
    TaskRunner m_tasks;
    RunHandle m_run;
    std::optional<RecordingReport> m_lastReport;
};

} // namespace quillo
