#pragma once

#include "App/System/ServiceContainer.h"
#include "Concurrency/TaskRunner.h"
#include "Data/ModelContext.h"
#include "Services/Queue/PendingTranscriptionManager.h"

#include <QMetaObject>

#include <memory>

namespace quillo {

/// Recordings after their dictation: those that wait for their text, and the limit of what is kept. Main thread.
class RecordingQueue {
public:
    /// The references outlive the queue. `history` is null when it could not be opened.
    RecordingQueue(ServiceContainer& services, ModelContext* history, Clock& clock, TaskRunner& tasks);
    ~RecordingQueue();
    RecordingQueue(const RecordingQueue&) = delete;
    RecordingQueue& operator=(const RecordingQueue&) = delete;

    /// Transcribes what waits on the disk, from now on.
    void start();
    /// Null before `start`.
    [[nodiscard]] PendingTranscriptionManager* manager() const { return m_manager.get(); }
    /// Deletes the oldest finished audio beyond the limit of the settings.
    void enforceStorageLimit();

private:
    void recordDidRecover(const QString& id);

    ServiceContainer& m_services;
    ModelContext* m_history;
    Clock& m_clock;
    TaskRunner& m_tasks;
    std::unique_ptr<PendingTranscriptionManager> m_manager;
    QMetaObject::Connection m_notifications;
};

} // namespace quillo
