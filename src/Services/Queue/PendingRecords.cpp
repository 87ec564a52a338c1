#include "Services/Queue/PendingRecords.h"

#include "Services/Queue/PendingQueueLog.h"
#include "Services/Queue/PendingRetryRules.h"

#include <algorithm>

namespace quillo {

namespace {

QList<MeetingSegment> meetingSegments(const std::vector<DiarizeSegment>& segments) {
    QList<MeetingSegment> converted;
    for (const auto& segment : segments)
        converted.append({.speakerId = segment.speakerLabel,
                          .speakerLabel = segment.speakerLabel,
                          .text = segment.text,
                          .start = segment.start,
                          .end = segment.end});
    return converted;
}

} // namespace

QList<RecordPointer> PendingRecords::fetch(const RecordQuery& query) {
    try {
        auto records = m_context.fetch(query);
        std::reverse(records.begin(), records.end());
        return records;
    } catch (const StoreError& error) {
        queueLog(QStringLiteral("❌ The history could not be read: %1").arg(error.message()), LogLevel::error);
        return {};
    }
}

QList<RecordPointer> PendingRecords::pending() { return fetch({.statuses = {RecordStatus::pendingTranscription}}); }

QList<RecordPointer> PendingRecords::pendingWith(const QString& audioId) {
    return fetch({.statuses = {RecordStatus::pendingTranscription}, .pendingAudioId = audioId});
}

QList<RecordPointer> PendingRecords::ofAudio(const QString& audioId, const std::optional<QString>& clientRecordingId) {
    QList<RecordPointer> found;
    const auto add = [&](const RecordQuery& query) {
        for (const auto& record : fetch(query))
            if (!found.contains(record))
                found.append(record);
    };
    add({.pendingAudioId = audioId});
    add({.audioRetainedId = audioId});
    add({.clientRecordingId = audioId});
    if (clientRecordingId && *clientRecordingId != audioId)
        add({.clientRecordingId = clientRecordingId});
    return found;
}

void PendingRecords::insert(const RecordPointer& record) {
    try {
        m_context.insert(record);
    } catch (const StoreError& error) {
        queueLog(QStringLiteral("❌ A record could not be added to the history: %1").arg(error.message()),
                 LogLevel::error);
    }
}

bool PendingRecords::save() {
    try {
        m_context.save();
        return true;
    } catch (const StoreError& error) {
        queueLog(QStringLiteral("❌ The history could not be saved: %1").arg(error.message()), LogLevel::error);
        return false;
    }
}

void PendingRecords::recordAttempt(const QList<RecordPointer>& records) {
    for (const auto& record : records) {
        record->markRetryAttempt();
        record->lastRetryAt = m_clock.wallTime();
    }
}

bool PendingRecords::recordEmptyResult(const QList<RecordPointer>& records) {
    bool isPointless = false;
    for (const auto& record : records)
        isPointless = record->incrementEmptyResultCount() || isPointless;
    return isPointless;
}

void PendingRecords::giveUp(const QList<RecordPointer>& records, const QString& status) {
    for (const auto& record : records) {
        record->status = status;
        record->migratePendingAudioToRetainedIfNeeded();
    }
}

void PendingRecords::makePending(const QList<RecordPointer>& records, const QString& audioId) {
    for (const auto& record : records) {
        record->status = RecordStatus::pendingTranscription;
        record->pendingAudioId = audioId;
        record->audioRetainedId.reset();
        record->retryCount = 0;
        record->lastRetryAt.reset();
        record->emptyResultCount = 0;
    }
}

int PendingRecords::resetBackoff(const QList<RecordPointer>& records) {
    int count = 0;
    for (const auto& record : records) {
        if (!record->lastRetryAt || record->retryCount >= pendingRetry::maximumAttempts)
            continue;
        record->lastRetryAt.reset();
        ++count;
    }
    return count;
}

QList<RecordPointer> PendingRecords::withoutDuplicates(const QList<RecordPointer>& records) {
    QList<RecordPointer> kept;
    for (const auto& record : records) {
        // The first record gets the text; empty duplicates would only repeat it.
        if (kept.isEmpty() || !record->text.isEmpty()) {
            kept.append(record);
            continue;
        }
        queueLog(QStringLiteral("🗑️ Deleted empty duplicate record for %1")
                     .arg(record->pendingAudioId.value_or(record->id.toString(QUuid::WithoutBraces))));
        m_context.remove(record);
    }
    return kept;
}

void PendingRecords::finish(TranscriptionRecord& record, const QString& text) {
    // Keep the old text as a version: the user has read and may have corrected it.
    if (!record.text.trimmed().isEmpty() && record.text != text) {
        auto versions = record.persistedVersions();
        versions.append({.text = record.text, .label = {}, .createdAt = m_clock.wallTime()});
        record.saveVersions(versions);
    }
    record.text = text;
    record.wordCount = countWords(text);
    record.status = RecordStatus::completed;
    record.retryCount = 0;
    record.lastRetryAt.reset();
    record.emptyResultCount = 0;
    record.migratePendingAudioToRetainedIfNeeded();
}

RecordPointer PendingRecords::applyText(const QList<RecordPointer>& records,
                                        const TranscriptionFileResponse& response) {
    const auto kept = withoutDuplicates(records);
    for (const auto& record : kept) {
        finish(*record, response.text.trimmed());
        if (response.languageDetected && !response.languageDetected->isEmpty())
            record->languageDetected = response.languageDetected;
        if (record->durationMs == 0)
            record->durationMs = response.durationMs.value_or(0);
        if (record->sessionId.isEmpty())
            record->sessionId = response.transcriptionId.value_or(QString());
    }
    return kept.isEmpty() ? nullptr : kept.front();
}

RecordPointer PendingRecords::applyDiarization(const QList<RecordPointer>& records, const DiarizeResponse& response) {
    const auto kept = withoutDuplicates(records);
    const auto segments = meetingSegments(response.segments);
    for (const auto& record : kept) {
        finish(*record, response.plainText.trimmed());
        record->applyDiarization(segments, response.plainText.trimmed(), response.speakerCount.value_or(0),
                                 response.summary, response.actionItems);
        if (record->durationMs == 0)
            record->durationMs = response.durationMs.value_or(0);
    }
    return kept.isEmpty() ? nullptr : kept.front();
}

} // namespace quillo
