#include "Features/Recording/RecordingArchive.h"

#include "Core/NotificationCenter.h"
#include "Data/ModelContext.h"
#include "Data/TagManager.h"
#include "Features/ErrorTexts/ErrorTexts.h"
#include "Features/Recording/RunLog.h"
#include "Localization/LocalizationManager.h"

namespace quillo {

namespace {

/// The reason beside the audio of a recording that is still running: what a recovery finds after a crash.
const QString inProgress = QStringLiteral("in_progress");

QString reasonOf(const std::exception& error) { return QString::fromUtf8(error.what()); }

} // namespace

RecordingArchive::RecordingArchive(ArchiveStores stores, ArchiveFacts facts, std::function<void(UserMessage)> onProblem)
    : m_stores(stores), m_facts(std::move(facts)), m_onProblem(std::move(onProblem)) {}

RecordingArchive::~RecordingArchive() {
    if (m_isSettled)
        return;
    recordingLog(QStringLiteral("⚠️ AudioFileWriter still active in handleRecordingFinished (chunks=%1) — leaving files "
                                "for orphan recovery ")
                     .arg(m_chunks),
                 LogLevel::warn);
    if (hasAudio())
        keepPending(QStringLiteral("unexpected_end"));
    else
        discard();
}

void RecordingArchive::begin() {
    m_writer = std::make_unique<AudioFileWriter>(m_facts.recordingId);
    m_writer->onFailure = [tell = m_onProblem](const FileError& error) {
        tell(errorTexts::ofSafetyCopy(error.cause()));
    };
    try {
        m_writer->startWriting();
        recordingLog(QStringLiteral("📁 Audio file writer started: %1").arg(m_facts.recordingId));
    } catch (const FileError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to start audio file writer: %1. Recording will proceed without disk "
                                    "backup. ")
                         .arg(reasonOf(error)),
                     LogLevel::warn);
        m_writer.reset();
        m_onProblem(errorTexts::ofSafetyCopy(error.cause()));
    }
    createActiveRecord();
    writeMetadata(inProgress);
    if (m_writer)
        recordingLog(QStringLiteral("📁 Early metadata saved for crash recovery: %1").arg(m_facts.recordingId));
}

void RecordingArchive::createActiveRecord() {
    if (!m_stores.history) {
        recordingLog(QStringLiteral("⚠️ ModelContext not available, skipping active record creation "), LogLevel::warn);
        return;
    }
    if (m_facts.userId.isEmpty()) {
        recordingLog(QStringLiteral("⚠️ No authenticated user, skipping active record creation "), LogLevel::warn);
        return;
    }
    if (outcomeRecord() && saveHistory())
        recordingLog(QStringLiteral("📝 Active record created: %1").arg(m_record->id.toString(QUuid::WithoutBraces)));
}

void RecordingArchive::append(const AudioChunk& chunk) {
    if (m_isSettled)
        return;
    m_bytes += chunk.data.size();
    ++m_chunks;
    if (m_writer)
        (void)m_writer->writeChunk(chunk.data);
}

void RecordingArchive::beginProcessing() {
    if (m_isSettled || !m_record)
        return;
    m_record->status = RecordStatus::processing;
    m_record->durationMs = durationMs();
    saveHistory();
}

void RecordingArchive::complete(const ArchivedText& text, bool keepAudio) {
    if (!settle())
        return;
    if (m_writer)
        m_writer->finalize();
    const bool hasBackup = m_writer && m_writer->totalBytes() > 0;
    const auto record = outcomeRecord();
    if (record) {
        recordingLog(QStringLiteral("💾 Saving transcription locally (text stays on device)... "));
        applyText(*record, text);
        record->status = RecordStatus::completed;
        record->audioRetainedId = hasBackup && keepAudio ? std::optional(m_facts.recordingId) : std::nullopt;
    }
    // The record first: were we killed in between, the audio would be found beside a finished record, not instead.
    if (!record || !saveHistory()) {
        // Nowhere to put the text: it will come from the audio again, once there is a history to hold it.
        writeMetadata(QStringLiteral("history_unavailable"));
        return;
    }
    recordingLog(QStringLiteral("✅ Active record finalized: %1").arg(record->id.toString(QUuid::WithoutBraces)));
    recordingLog(text.metricsId
                     ? QStringLiteral("✅ Local record updated with metricsId %1").arg(*text.metricsId)
                     : QStringLiteral("ℹ️ No metricsId received from server; leaving local record unlinked "));
    if (m_stores.tags)
        m_stores.tags->applyAutoTag(record);
    if (!m_writer)
        return;
    if (hasBackup && keepAudio) {
        writeMetadata(QStringLiteral("completed"));
        AudioFileWriter::markCompleted(m_facts.recordingId);
        recordingLog(QStringLiteral("🎧 Audio retained for playback: %1").arg(m_facts.recordingId));
    } else {
        m_writer->deleteFiles();
        recordingLog(QStringLiteral("🗑️ Audio backup file cleaned up (recording succeeded) "));
    }
}

void RecordingArchive::keepPending(const QString& reason, const ArchivedText& text) {
    if (!settle())
        return;
    if (m_writer)
        m_writer->finalize();
    if (!m_writer || m_writer->totalBytes() == 0) {
        // Nothing reached the disk. What text there is must not be lost with it.
        if (text.text.isEmpty()) {
            removeRecord();
        } else if (const auto record = outcomeRecord()) {
            applyText(*record, text);
            record->status = RecordStatus::completed;
            saveHistory();
        }
        if (m_writer)
            m_writer->deleteFiles();
        return;
    }
    writeMetadata(reason);
    if (const auto record = outcomeRecord()) {
        applyText(*record, text);
        record->status = RecordStatus::pendingTranscription;
        record->pendingAudioId = m_facts.recordingId;
        saveHistory();
    }
    recordingLog(QStringLiteral("🎧 Audio retained for PENDING recovery: %1 (%2)").arg(m_facts.recordingId, reason));
    NotificationCenter::shared().post(notification::pendingRecordingSaved,
                                      {{QStringLiteral("pendingAudioId"), m_facts.recordingId}});
}

void RecordingArchive::keepUnrecognized(const QString& reason) {
    if (!settle())
        return;
    if (m_writer)
        m_writer->finalize();
    if (!m_writer || m_writer->totalBytes() == 0) {
        removeRecord();
        if (m_writer)
            m_writer->deleteFiles();
        return;
    }
    writeMetadata(reason);
    if (const auto record = outcomeRecord()) {
        record->status = RecordStatus::unrecognized;
        record->durationMs = durationMs();
        record->audioRetainedId = m_facts.recordingId;
        // Without the verdict in the history the audio would be out of everybody's sight; so it waits instead.
        if (saveHistory())
            AudioFileWriter::markCompleted(m_facts.recordingId);
    }
}

void RecordingArchive::discard() {
    if (!settle())
        return;
    if (m_writer) {
        m_writer->finalize();
        m_writer->deleteFiles();
    }
    removeRecord();
}

bool RecordingArchive::settle() {
    if (m_isSettled)
        return false;
    m_isSettled = true;
    return true;
}

RecordPointer RecordingArchive::outcomeRecord() {
    if (m_record || !m_stores.history || m_facts.userId.isEmpty())
        return m_record;
    m_record = TranscriptionRecord::recordingInProgress(
        m_facts.userId, m_facts.targetApp.isEmpty() ? std::nullopt : std::optional(m_facts.targetApp), false);
    m_record->createdAt = m_facts.createdAt;
    m_record->clientRecordingId = m_facts.recordingId;
    m_stores.history->insert(m_record);
    return m_record;
}

void RecordingArchive::removeRecord() {
    if (!m_record)
        return;
    recordingLog(
        QStringLiteral("🧹 Deleted empty processing record: %1").arg(m_record->id.toString(QUuid::WithoutBraces)));
    m_stores.history->remove(m_record);
    saveHistory();
    m_record.reset();
}

void RecordingArchive::applyText(TranscriptionRecord& record, const ArchivedText& text) const {
    record.text = text.text;
    record.wordCount = countWords(text.text);
    record.durationMs = durationMs();
    record.sessionId = text.sessionId;
    if (!text.originalText.isEmpty() && text.originalText != text.text)
        record.rawText = text.originalText;
    if (!text.language.isEmpty())
        record.languageDetected = text.language;
    if (text.metricsId)
        record.markMetricsReported(*text.metricsId);
    if (!text.mismatch)
        return;
    record.detectedLanguageMismatch = true;
    record.mismatchConfiguredLanguage = text.mismatch->configuredLanguage;
    record.mismatchDetectedLanguage = text.mismatch->detectedLanguage;
    record.mismatchDetectedLanguageName = text.mismatch->detectedLanguageName;
    recordingLog(QStringLiteral("⚠️ Language mismatch saved: configured=%1 detected=%2")
                     .arg(text.mismatch->configuredLanguage, text.mismatch->detectedLanguage));
}

bool RecordingArchive::saveHistory() {
    try {
        m_stores.history->save();
        return true;
    } catch (const StoreError& error) {
        recordingLog(QStringLiteral("❌ The history could not be saved: %1").arg(reasonOf(error)), LogLevel::error);
        m_onProblem(errorTexts::of(error.cause()));
        return false;
    }
}

void RecordingArchive::writeMetadata(const QString& reason) {
    if (!m_writer)
        return;
    PendingAudioMetadata metadata;
    metadata.id = m_facts.recordingId;
    metadata.createdAt = m_facts.createdAt;
    metadata.durationMs = durationMs();
    metadata.primaryLanguage = m_facts.primaryLanguage;
    metadata.secondaryLanguage = m_facts.secondaryLanguage;
    metadata.targetApp = m_facts.targetApp;
    metadata.targetAppPid = m_facts.targetAppPid;
    metadata.userId = m_facts.userId;
    metadata.chunkCount = m_writer->chunkCount();
    metadata.totalBytes = m_writer->totalBytes();
    metadata.reason = reason;
    metadata.clientRecordingId = m_facts.recordingId;
    try {
        m_writer->saveMetadata(metadata);
    } catch (const std::exception& error) {
        // The audio itself is enough for a recovery; the facts beside it are lost.
        recordingLog(QStringLiteral("⚠️ The recording's metadata could not be written: %1").arg(reasonOf(error)),
                     LogLevel::warn);
    }
}

} // namespace quillo
