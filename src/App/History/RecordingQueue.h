#pragma once

#include "App/System/ServiceContainer.h"
#include "Concurrency/TaskRunner.h"
#include "Data/ModelContext.h"
#include "Services/Queue/PendingTranscriptionManager.h"

#include <QMetaObject>

#include <memory>

namespace quillo {

/// Recordings after their dictation: the queue of those that wait for their text, and the storage limit. Main thread.
class RecordingQueue {
public:
    /// The references must outlive the queue. `history` is null when there is none on the disk. `server` is
    /// ServerEnvironment::identity().
    RecordingQueue(ServiceContainer& services, ModelContext* history, QString server, Clock& clock, TaskRunner& tasks);
    ~RecordingQueue();
    RecordingQueue(const RecordingQueue&) = delete;
    RecordingQueue& operator=(const RecordingQueue&) = delete;

    /// Begins to transcribe the waiting recordings.
    void start();
    /// Null before `start`.
    [[nodiscard]] PendingTranscriptionManager* manager() const { return m_manager.get(); }
    /// Deletes the oldest finished audio beyond the limit in the settings.
    void enforceStorageLimit();

private:
    void recordDidRecover(const QString& id);

    ServiceContainer& m_services;
    ModelContext* m_history;
    QString m_server;
    Clock& m_clock;
    TaskRunner& m_tasks;
    std::unique_ptr<PendingTranscriptionManager> m_manager;
    QMetaObject::Connection m_notifications;
    QMetaObject::Connection m_settings;
};

} // namespace quillo
