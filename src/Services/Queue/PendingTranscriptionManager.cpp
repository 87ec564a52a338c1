#include "Services/Queue/PendingTranscriptionManager.h"

#include "Core/NotificationCenter.h"
#include "Services/Queue/PendingQueueLog.h"
#include "Services/Queue/PendingRepair.h"
#include "Services/Queue/PendingRetryRules.h"

namespace quillo {

PendingTranscriptionManager::PendingTranscriptionManager(PendingQueueServices services)
    : m_queue(std::make_shared<PendingQueue>(services)), m_startedAt(services.clock.wallTime()),
      m_self(std::make_shared<PendingTranscriptionManager*>(this)),
      m_tasks([](const QString& name, const QString& error) {
          queueLog(QStringLiteral("❌ %1: %2").arg(name, error), LogLevel::error);
      }) {}

PendingTranscriptionManager::~PendingTranscriptionManager() {
    QObject::disconnect(m_observer);
    *m_self = nullptr;
    m_queue->close();
}

void PendingTranscriptionManager::start(ModelContext* context) {
    if (context)
        m_queue->records.emplace(*context, m_queue->services.clock);
    queueLog(QStringLiteral("✅ PendingTranscriptionManager started"));
    m_queue->rememberCurrentUser();
    if (m_queue->records) {
        const auto user = m_queue->services.auth.currentUser();
        PendingRepair repair{
            .now = m_queue->services.clock.wallTime(), .startedAt = m_startedAt, .userId = user ? user->id : QString()};
        repair.run(*m_queue->records);
    } else {
        queueLog(QStringLiteral("⚠️ No history to write to: recordings wait on disk for the next start"),
                 LogLevel::warn);
    }
    m_queue->services.network.startMonitoring();
    watchNetwork();
    m_observer = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                  [this](const QString& name, const QVariantMap& info) { observe(name, info); });
    processPendingIfNeeded();
}

void PendingTranscriptionManager::processPendingIfNeeded() {
    m_tasks.run(QStringLiteral("pending pass"), [queue = m_queue, self = m_self](std::stop_token) -> Task<> {
        co_await PendingQueue::processPendingIfNeeded(queue);
        if (*self)
            (*self)->armTimer();
    });
}

bool PendingTranscriptionManager::retranscribeRecording(const QString& pendingAudioId, const QString& language) {
    if (!m_queue->requestAgain(pendingAudioId, language))
        return false;
    processPendingIfNeeded();
    return true;
}

void PendingTranscriptionManager::observe(const QString& name, const QVariantMap& userInfo) {
    if (name == notification::pendingRecordingSaved) {
        queueLog(QStringLiteral("📬 New pending recording saved — triggering processing"));
        processPendingIfNeeded();
    } else if (name == notification::realTimeRecordingStopped) {
        queueLog(QStringLiteral("🎙️ Real-time recording stopped — triggering pending check"));
        processPendingIfNeeded();
    } else if (name == notification::realTimeRecordingStarted) {
        queueLog(QStringLiteral("🎙️ Real-time recording started (pending processing continues in parallel)"));
    } else if (name == notification::retranscribeRequest) {
        retranscribeRecording(userInfo.value(QStringLiteral("pendingAudioId")).toString(),
                              userInfo.value(QStringLiteral("language")).toString());
    } else if (name == notification::authUserDidChange) {
        m_queue->rememberCurrentUser();
        adoptOwnerless();
        m_queue->expectServer();
        processPendingIfNeeded();
    } else if (name == notification::transcriptionSucceeded && m_queue->resetBackoff()) {
        m_deferred =
            m_queue->services.clock.callLater(pendingRetry::recoveryDelay, [this] { processPendingIfNeeded(); });
    }
}

void PendingTranscriptionManager::adoptOwnerless() {
    const auto user = m_queue->services.auth.currentUser();
    if (!user || !m_queue->records)
        return;
    PendingRepair repair{.now = m_queue->services.clock.wallTime(), .startedAt = m_startedAt, .userId = user->id};
    repair.adoptOwnerless(*m_queue->records);
    m_queue->recordsDidChange();
}

void PendingTranscriptionManager::watchNetwork() {
    m_tasks.run(QStringLiteral("network watch"), [queue = m_queue, self = m_self](std::stop_token token) -> Task<> {
        auto changes = queue->services.network.connectivityStream();
        while (const auto connected = co_await changes.next(token)) {
            if (!*self)
                co_return;
            if (!*connected)
                continue;
            queue->expectServer();
            queueLog(QStringLiteral("🌐 Network available — checking for pending transcriptions"));
            (*self)->processPendingIfNeeded();
        }
    });
}

void PendingTranscriptionManager::armTimer() {
    if (m_queue->isProcessing)
        return; // the running pass arms the timer at its end
    m_check.reset();
    if (m_queue->isWaiting())
        m_check = m_queue->services.clock.callLater(pendingRetry::checkInterval, [this] { processPendingIfNeeded(); });
}

} // namespace quillo
