#pragma once

#include "Concurrency/TaskRunner.h"
#include "Services/Queue/PendingQueue.h"

#include <QMetaObject>
#include <QVariantMap>

namespace quillo {

/// Transcribes later what a live session could not, so that no recording is lost. Main thread; one pass at a time,
/// recordings strictly one after another.
///
/// It looks at its queue when it starts, when a recording joins, when a live recording ends, when the network or the
/// user returns, after the server recovered, and every 30 s while something waits. With nothing waiting no timer runs.
class PendingTranscriptionManager {
public:
    /// The services outlive the manager.
    explicit PendingTranscriptionManager(PendingQueueServices services);
    /// A pass that still runs ends at its next step.
    ~PendingTranscriptionManager();
    PendingTranscriptionManager(const PendingTranscriptionManager&) = delete;
    PendingTranscriptionManager& operator=(const PendingTranscriptionManager&) = delete;

    /// Once, at start-up, after the clean-up of stale records: repairs, observes, and begins a pass. Without a history,
    /// null, recordings stay on disk for a later start. `context` outlives the manager.
    void start(ModelContext* context);
    /// One pass, unless one is running, there is no network, or nobody is signed in.
    void processPendingIfNeeded();
    /// Transcribes a stored recording again, in `language` unless that is empty. False when that cannot be begun.
    bool retranscribeRecording(const QString& pendingAudioId, const QString& language);
    [[nodiscard]] bool isProcessing() const { return m_queue->isProcessing; }

private:
    void observe(const QString& name, const QVariantMap& userInfo);
    void watchNetwork();
    void armTimer();

    std::shared_ptr<PendingQueue> m_queue;
    QDateTime m_startedAt;
    QMetaObject::Connection m_observer;
    Clock::TimerHandle m_check;                           ///< armed only while something waits
    Clock::TimerHandle m_deferred;                        ///< the pass after a recovery
    std::shared_ptr<PendingTranscriptionManager*> m_self; ///< null once this is gone
    TaskRunner m_tasks;
};

} // namespace quillo
