#pragma once

#include "Concurrency/TaskRunner.h"
#include "Services/Queue/PendingQueue.h"

#include <QMetaObject>
#include <QVariantMap>

namespace quillo {

/// Transcribes recordings that a live session could not, so that none is lost. Main thread; one pass at a time,
/// recordings strictly one after the other.
///
/// Checks its queue at start, when a recording joins, when a live recording ends, when the network or the user returns,
/// after the server recovered, and every 30 s while something waits. No timer runs while the queue is empty.
class PendingTranscriptionManager {
public:
    /// The services must outlive the manager.
    explicit PendingTranscriptionManager(PendingQueueServices services);
    /// A running pass ends at its next step.
    ~PendingTranscriptionManager();
    PendingTranscriptionManager(const PendingTranscriptionManager&) = delete;
    PendingTranscriptionManager& operator=(const PendingTranscriptionManager&) = delete;

    /// Call once at start-up, after the clean-up of stale records: repairs, observes, and begins a pass. Without a
    /// history (null) recordings stay on disk for a later start. `context` must outlive the manager.
    void start(ModelContext* context);
    /// Begins a pass, unless one is running, there is no network, or no user is signed in.
    void processPendingIfNeeded();
    /// Transcribes a stored recording again, in `language` unless that is empty. False when that is not possible.
    bool retranscribeRecording(const QString& pendingAudioId, const QString& language);
    [[nodiscard]] bool isProcessing() const { return m_queue->isProcessing; }

private:
    void observe(const QString& name, const QVariantMap& userInfo);
    /// What was recorded before there was a user belongs to the one who is there now.
    void adoptOwnerless();
    void watchNetwork();
    void armTimer();

    std::shared_ptr<PendingQueue> m_queue;
    QDateTime m_startedAt;
    QMetaObject::Connection m_observer;
    Clock::TimerHandle m_check;                           ///< armed only while something waits
    Clock::TimerHandle m_deferred;                        ///< the pass after a recovery
    std::shared_ptr<PendingTranscriptionManager*> m_self; ///< null once this is destroyed
    TaskRunner m_tasks;
};

} // namespace quillo
