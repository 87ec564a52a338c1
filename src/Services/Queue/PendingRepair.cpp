#include "Services/Queue/PendingRepair.h"

#include "Services/Queue/PendingQueueLog.h"
#include "Services/Queue/PendingRetryRules.h"
#include "Services/Recordings/KeptReasons.h"
#include "Services/Recordings/PendingAudioFiles.h"
#include "Services/Recordings/RecordingsInUse.h"

#include <QFileInfo>
#include <QSet>

namespace quillo {

namespace {

bool isBeingWritten(const QString& audioId) {
    return RecordingsInUse::contains(audioId, RecordingsInUse::Purpose::writing);
}

bool isPending(const RecordPointer& record) { return record->status == RecordStatus::pendingTranscription; }

/// A final record: it has a text, or the result that there is none.
bool isSettled(const RecordPointer& record) {
    if (record->status == RecordStatus::completed)
        return !record->text.trimmed().isEmpty();
    return record->status == RecordStatus::unrecognized || record->status == RecordStatus::transcriptionFailed;
}

} // namespace

void PendingRepair::run(PendingRecords& records) {
    QSet<QString> waiting; // skip the history query for these, of which a long queue has many
    for (const auto& record : records.pending()) {
        settleRecord(records, record);
        if (isPending(record))
            waiting.insert(record->pendingAudioId.value_or(QString()));
    }
    for (const auto& metadata : pendingAudioFiles::listPendingRecordings())
        // If the clock was set back, an old recording may look like one of this run, but only until the next start.
        if (!waiting.contains(metadata.id) && !isBeingWritten(metadata.id) && metadata.createdAt < startedAt)
            settleAudio(records, metadata);
    adoptStrayAudio(records);
    records.save();
    removeStaleFiles();
}

void PendingRepair::adoptOwnerless(PendingRecords& records) {
    for (const auto& metadata : pendingAudioFiles::listPendingRecordings())
        // A dictation that has not ended yet makes its record itself.
        if (metadata.reason != pendingAudioFiles::inProgressReason && !isBeingWritten(metadata.id) &&
            records.ofAudio(metadata.id, metadata.clientRecordingId).isEmpty())
            adopt(records, metadata);
    if (adopted > 0)
        records.save();
}

void PendingRepair::settleRecord(PendingRecords& records, const RecordPointer& record) {
    auto audioId = record->pendingAudioId.value_or(QString());
    if (!pendingAudioFiles::audioFilesExist(audioId))
        for (const auto& other : {record->clientRecordingId, record->audioRetainedId})
            if (other && pendingAudioFiles::audioFilesExist(*other)) {
                record->pendingAudioId = audioId = *other;
                break;
            }
    if (isBeingWritten(audioId))
        return;
    if (!pendingAudioFiles::audioFilesExist(audioId)) {
        ++orphans;
        record->status = record->text.isEmpty() ? RecordStatus::transcriptionFailed : RecordStatus::completed;
        record->pendingAudioId.reset();
        queueLog(QStringLiteral("⚠️ The audio of a waiting record is gone: %1 (%2)")
                     .arg(record->id.toString(QUuid::WithoutBraces), audioId),
                 LogLevel::warn);
        return;
    }
    try {
        const auto metadata = pendingAudioFiles::readMetadata(audioId);
        // The result that could not be written to the history at that time.
        if (!metadata.completedAt)
            return;
        if (metadata.reason == pendingAudioFiles::unrecognizedReason)
            PendingRecords::giveUp(records.pendingWith(audioId), RecordStatus::unrecognized);
        else if (metadata.reason == pendingAudioFiles::failedReason ||
                 metadata.reason == pendingAudioFiles::languageReason)
            PendingRecords::giveUp(records.pendingWith(audioId), RecordStatus::transcriptionFailed);
    } catch (const FileError&) {
        return; // the audio is found again, as audio without metadata
    }
}

void PendingRepair::settleAudio(PendingRecords& records, const PendingAudioMetadata& metadata) {
    const auto owners = records.ofAudio(metadata.id, metadata.clientRecordingId);
    if (owners.isEmpty())
        return adopt(records, metadata);
    if (std::any_of(owners.begin(), owners.end(), isPending))
        return;
    const auto verdict = std::find_if(owners.begin(), owners.end(), isSettled);
    if (verdict == owners.end()) {
        records.makePending({owners.front()}, metadata.id);
        ++adopted;
        return;
    }
    if (!(*verdict)->pendingAudioId && !(*verdict)->audioRetainedId)
        (*verdict)->audioRetainedId = metadata.id;
    // Update the record before the file.
    if (records.save() && pendingAudioFiles::markCompleted(metadata.id, now))
        ++settled;
}

void PendingRepair::adoptStrayAudio(PendingRecords& records) {
    for (const auto& stray : pendingAudioFiles::listAudioWithoutMetadata()) {
        // Even if it is recent: no process writes it any more.
        if (isBeingWritten(stray.recordingId))
            continue;
        try {
            auto metadata = pendingAudioFiles::metadataOrDefaults(stray.recordingId);
            metadata.userId = userId;
            metadata.clientRecordingId = stray.recordingId;
            metadata.reason = QStringLiteral("orphan_without_metadata");
            pendingAudioFiles::writeMetadata(metadata);
            settleAudio(records, metadata);
        } catch (const FileError& error) {
            queueLog(QStringLiteral("⚠️ Audio could not be adopted: %1").arg(error.message()), LogLevel::warn);
        }
    }
}

void PendingRepair::adopt(PendingRecords& records, const PendingAudioMetadata& metadata) {
    const auto durationMs = pendingAudioFiles::durationMs(pendingAudioFiles::audioBytes(metadata.id));
    queueLog(QStringLiteral("📐 Estimated duration for orphan %1: %2 ms").arg(metadata.id).arg(durationMs));
    const auto record = std::make_shared<TranscriptionRecord>();
    record->userId = metadata.userId.isEmpty() ? userId : metadata.userId;
    record->createdAt = metadata.createdAt;
    record->durationMs = durationMs;
    if (!metadata.targetApp.isEmpty())
        record->sourceApp = metadata.targetApp;
    record->status = RecordStatus::pendingTranscription;
    record->pendingAudioId = metadata.id;
    record->clientRecordingId = metadata.clientRecordingId.value_or(metadata.id);
    record->emptyResultCount = metadata.emptyResultCount.value_or(0);
    record->isMeetingMode = metadata.systemAudioId.has_value();
    record->sourceDevice = QStringLiteral("macOS"); // the word of the records that this program makes
    records.insert(record);
    ++adopted;
}

void PendingRepair::removeStaleFiles() {
    for (const auto& name : pendingAudioFiles::listStaleFiles()) {
        const auto path = pendingAudioFiles::directory() + u'/' + name;
        if (QFileInfo(path).lastModified().toUTC().secsTo(now) < pendingRetry::youngFile.count())
            queueLog(QStringLiteral("⏳ Skipping young unmatched file: %1").arg(name));
        else if (privateFile::remove(path))
            ++removed;
    }
    if (removed > 0)
        queueLog(QStringLiteral("🧹 Cleaned up %1 stale file(s) from pending-audio directory").arg(removed));
}

} // namespace quillo
