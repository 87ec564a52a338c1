#include "App/History/RecordingQueue.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Data/TagManager.h"
#include "Services/Recordings/AudioStorageManager.h"
#include "Services/Settings/UserSettings.h"

namespace quillo {

RecordingQueue::RecordingQueue(ServiceContainer& services, ModelContext* history, QString server, Clock& clock,
                               TaskRunner& tasks)
    : m_services(services), m_history(history), m_server(std::move(server)), m_clock(clock), m_tasks(tasks) {
    m_notifications = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                       [this](const QString& name, const QVariantMap& userInfo) {
                                           if (name == notification::pendingRecordRecovered)
                                               recordDidRecover(userInfo.value(QStringLiteral("recordId")).toString());
                                       });
    m_settings = QObject::connect(&UserSettings::shared(), &UserSettings::changed, [this](const QString& key) {
        if (key == QStringLiteral("audioStorageLimitMB") || key == QStringLiteral("keepAudio"))
            enforceStorageLimit();
    });
}

RecordingQueue::~RecordingQueue() {
    QObject::disconnect(m_notifications);
    QObject::disconnect(m_settings);
}

void RecordingQueue::start() {
    m_manager = std::make_unique<PendingTranscriptionManager>(
        PendingQueueServices{*m_services.fileClient, *m_services.networkMonitor, *m_services.authService,
                             Preferences::shared(), m_clock, m_server});
    m_manager->start(m_history);
    enforceStorageLimit();
}

void RecordingQueue::enforceStorageLimit() {
    m_tasks.run(QStringLiteral("storage limit"),
                [](std::stop_token) { return AudioStorageManager::shared().enforceStorageLimitAsync(); });
}

void RecordingQueue::recordDidRecover(const QString& id) {
    try {
        if (const auto record = m_history ? m_history->record(QUuid(id)) : nullptr)
            TagManager::shared().applyAutoTag(record);
    } catch (const StoreError& error) {
        appLog(QStringLiteral("⚠️ A recovered record could not be tagged: %1").arg(error.message()), LogLevel::warn,
               QStringLiteral("App"));
    }
    enforceStorageLimit();
}

} // namespace quillo
