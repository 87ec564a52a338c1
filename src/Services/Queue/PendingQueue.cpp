#include "Services/Queue/PendingQueue.h"

#include "Core/NotificationCenter.h"
#include "Services/Queue/PendingQueueLog.h"
#include "Services/Queue/PendingRetryRules.h"
#include "Services/Recordings/PendingAudioFiles.h"

namespace quillo {

namespace {

const QString anonymousUsersKey = QStringLiteral("pendingAnonymousUserIds");
constexpr qsizetype rememberedUsers = 50;

} // namespace

std::vector<PendingQueue::Group> PendingQueue::collect() {
    std::vector<Group> groups;
    QHash<QString, size_t> places;
    std::map<QString, RecordingsInUse::Lease> leases;
    for (const auto& record : records->pending()) {
        const auto audioId = record->pendingAudioId.value_or(QString());
        if (!pendingAudioFiles::isRecordingId(audioId))
            continue;
        // Pending audio must survive the storage limit, whichever user owns it.
        leases.try_emplace(audioId, audioId, RecordingsInUse::Purpose::queued);
        if (!isOwn(record->userId) || RecordingsInUse::contains(audioId, RecordingsInUse::Purpose::writing))
            continue;
        const auto found = places.constFind(audioId);
        if (found != places.constEnd()) {
            groups[*found].records.append(record);
            continue;
        }
        places.insert(audioId, groups.size());
        groups.push_back({audioId, {record}});
    }
    m_leases = std::move(leases);
    m_hasWaiting = !groups.empty();
    m_hasChanged = false;
    return groups;
}

Task<> PendingQueue::processPendingIfNeeded(Self self) {
    if (self->isClosed || !self->records)
        co_return;
    self->publishUnsaved();
    if (!self->services.network.isConnected()) {
        queueLog(QStringLiteral("🌐 No network — skipping pending transcription processing"));
        co_return;
    }
    if (self->isProcessing) {
        queueLog(QStringLiteral("⏳ Already processing pending recordings, skipping"));
        co_return;
    }
    struct Pass {
        explicit Pass(bool& running) : isRunning(running) { isRunning = true; }
        ~Pass() { isRunning = false; }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        bool& isRunning;
    };
    const Pass pass(self->isProcessing);
    self->m_isSignedOut = false;
    self->m_hasAnswered = false;
    QHash<QString, int> seen;
    auto groups = self->collect();
    self->putUntriedFirst(groups);
    // Give up expired recordings even while no server answers.
    const auto now = self->services.clock.wallTime();
    // A time further away than any wait comes from a clock that was set back.
    bool isAway =
        self->m_server.dueAt > now && now.secsTo(self->m_server.dueAt) <= pendingRetry::longestServerWait.count();
    if (!groups.empty())
        queueLog(QStringLiteral("📋 %1 pending recording(s) to process").arg(groups.size()));
    while (!groups.empty()) {
        for (const auto& group : groups) {
            if (self->isClosed)
                co_return;
            if (!self->services.network.isConnected()) {
                queueLog(QStringLiteral("🌐 Network lost during processing — pausing"));
                co_return;
            }
            const auto request = self->m_requests.value(group.audioId);
            if (isAway) {
                self->giveUpOverdue(group);
                continue;
            }
            const auto step = co_await process(self, group);
            if (step == Step::pause)
                co_return;
            isAway = step == Step::away;
            if (step == Step::done)
                seen.insert(group.audioId, request);
        }
        // If nothing was sent, no time has passed in which something could have arrived.
        if (self->isClosed || isAway || !self->m_hasChanged)
            co_return;
        groups = self->collect();
        std::erase_if(groups, [&](const Group& group) {
            const auto found = seen.constFind(group.audioId);
            return found != seen.constEnd() && *found == self->m_requests.value(group.audioId);
        });
        if (!groups.empty())
            queueLog(QStringLiteral("📋 Re-check: found %1 new pending recording(s) arrived during processing")
                         .arg(groups.size()));
    }
}

void PendingQueue::putUntriedFirst(std::vector<Group>& groups) const {
    std::stable_partition(groups.begin(), groups.end(),
                          [this](const Group& group) { return !m_server.tried.contains(group.audioId); });
}

bool PendingQueue::requestAgain(const QString& audioId, const QString& language) {
    queueLog(QStringLiteral("🔄 Retranscribe request received for: %1").arg(audioId));
    if (!records || !pendingAudioFiles::audioFilesExist(audioId)) {
        queueLog(QStringLiteral("⚠️ Audio files no longer exist for: %1").arg(audioId), LogLevel::warn);
        return false;
    }
    if (RecordingsInUse::contains(audioId, RecordingsInUse::Purpose::writing)) {
        queueLog(QStringLiteral("⚠️ Still recording: %1").arg(audioId), LogLevel::warn);
        return false;
    }
    const auto owners = records->ofAudio(audioId);
    if (owners.isEmpty()) {
        queueLog(QStringLiteral("⚠️ No record in the history for: %1").arg(audioId), LogLevel::warn);
        return false;
    }
    try {
        auto metadata = pendingAudioFiles::metadataOrDefaults(audioId);
        if (!language.isEmpty() && language != metadata.primaryLanguage) {
            queueLog(QStringLiteral("🌐 Re-transcription language changed: %1 → %2")
                         .arg(metadata.primaryLanguage, language));
            metadata.primaryLanguage = language;
        }
        // Retained audio stays retained whatever the result; a recording that never had a text keeps its age.
        metadata.emptyResultCount.reset();
        metadata.reason = QStringLiteral("retranscribe");
        pendingAudioFiles::writeMetadata(metadata);
    } catch (const FileError& error) {
        queueLog(QStringLiteral("❌ Re-transcription could not be started: %1").arg(error.message()), LogLevel::error);
        return false;
    }
    records->makePending(owners, audioId);
    records->save();
    m_hasChanged = true;
    ++m_requests[audioId];
    m_rejected.remove(audioId);
    expectServer();
    queueLog(QStringLiteral("🔄 Re-transcription initiated for: %1").arg(audioId));
    return true;
}

bool PendingQueue::resetBackoff() {
    expectServer();
    if (!records)
        return false;
    auto waiting = records->pending();
    // A recording that the server rejected would be rejected again after every successful dictation, so leave it out.
    waiting.removeIf([this](const RecordPointer& record) {
        return !isOwn(record->userId) || m_rejected.contains(record->pendingAudioId.value_or(QString()));
    });
    const int count = records->resetBackoff(waiting);
    if (count == 0)
        return false;
    records->save();
    queueLog(QStringLiteral("🚀 STT service recovered — reset backoff on %1 pending recording(s), scheduling deferred "
                            "retry")
                 .arg(count));
    return true;
}

bool PendingQueue::isWaiting() {
    if (records && records->hasChanges())
        return true;
    // Without a network or a session a later check could not do anything. Their return, or the next live recording,
    // begins a pass.
    if (!records || !services.network.isConnected() || !services.auth.currentUser() || m_isSignedOut)
        return false;
    if (m_hasChanged)
        (void)collect();
    return m_hasWaiting || !m_unsaved.empty();
}

bool PendingQueue::isOwn(const QString& userId) const {
    const auto user = services.auth.currentUser();
    if (!user)
        return false;
    return userId.isEmpty() || userId == user->id ||
           services.preferences.value(anonymousUsersKey).toString().split(u',').contains(userId);
}

void PendingQueue::rememberCurrentUser() {
    const auto user = services.auth.currentUser();
    if (!user || !user->isAnonymous || user->id.contains(u','))
        return;
    auto known = services.preferences.value(anonymousUsersKey).toString().split(u',', Qt::SkipEmptyParts);
    if (known.contains(user->id))
        return;
    known.append(user->id);
    services.preferences.setValue(anonymousUsersKey,
                                  known.mid(std::max<qsizetype>(0, known.size() - rememberedUsers)).join(u','));
}

void PendingQueue::markUnrecognized(const QString& audioId, const QList<RecordPointer>& waiting) {
    const bool isSaved = giveUp(audioId, waiting, RecordStatus::unrecognized);
    queueLog((isSaved ? QStringLiteral("🔇 Marked record as unrecognized (audio preserved for manual retry): %1")
                      : QStringLiteral("🔇 Marked recording as unrecognized (disk only, DB unavailable): %1"))
                 .arg(audioId));
}

bool PendingQueue::giveUp(const QString& audioId, const QList<RecordPointer>& waiting, const QString& status) {
    bool hadText = false;
    try {
        hadText = !pendingAudioFiles::readMetadata(audioId).isPending();
    } catch (const FileError&) {
        hadText = false;
    }
    for (const auto& record : waiting) {
        // Keep the text that another transcription was meant to replace.
        const bool stands = hadText && !record->text.isEmpty();
        PendingRecords::giveUp({record}, stands ? RecordStatus::completed : status);
    }
    const bool isSaved = records->save();
    const bool isUnrecognized = status == RecordStatus::unrecognized;
    pendingAudioFiles::markCompleted(audioId, services.clock.wallTime(),
                                     isUnrecognized ? pendingAudioFiles::unrecognizedReason
                                                    : pendingAudioFiles::failedReason);
    return isSaved;
}

void PendingQueue::publish(const QString& audioId, const RecordPointer& record) {
    // Save the record first: if the program is killed in between, the next start finds the text with the audio.
    pendingAudioFiles::markCompleted(audioId, services.clock.wallTime());
    queueLog(QStringLiteral("✅ Pending recording transcribed successfully: %1... (audio kept until storage limit)")
                 .arg(audioId.left(8)));
    NotificationCenter::shared().post(notification::pendingRecordRecovered,
                                      {{QStringLiteral("recordId"), record->id.toString(QUuid::WithoutBraces)},
                                       {QStringLiteral("pendingAudioId"), audioId}});
}

void PendingQueue::publishUnsaved() {
    if ((m_unsaved.empty() && !records->hasChanges()) || !records->save())
        return;
    for (const auto& [audioId, record] : std::exchange(m_unsaved, {}))
        publish(audioId, record);
}

} // namespace quillo
