#include "Features/Recording/RecordingArchive.h"

#include "Core/NotificationCenter.h"
#include "Core/UserNotice.h"
#include "Data/ModelContext.h"
#include "Data/TagManager.h"
#include "Features/ErrorTexts/ErrorTexts.h"
#include "Features/Recording/RunLog.h"
#include "Services/Recordings/KeptReasons.h"

namespace quillo {

namespace {

QString reasonOf(const std::exception& error) { return QString::fromUtf8(error.what()); }

} // namespace

RecordingArchive::RecordingArchive(ArchiveStores stores, ArchiveFacts facts, AudioBackups audio)
    : m_stores(stores), m_facts(std::move(facts)), m_audio(std::move(audio)) {}

RecordingArchive::~RecordingArchive() {
    if (m_isSettled)
        return;
    recordingLog(QStringLiteral("⚠️ AudioFileWriter still active in handleRecordingFinished (chunks=%1) — leaving files "
                                "for orphan recovery ")
                     .arg(m_audio.chunkCount()),
                 LogLevel::warn);
    if (hasAudio())
        keepPending(QStringLiteral("unexpected_end"));
    else
        discard();
}

void RecordingArchive::report(const UserMessage& problem) {
    // One cause often fails several steps; the person reads it once.
    if (m_problem == problem)
        return;
    m_problem = problem;
    userNotice::post(problem);
}

QString RecordingArchive::userId() {
    if (m_userId.isEmpty())
        m_userId = m_facts.userId();
    return m_userId;
}

void RecordingArchive::begin() {
    m_audio.begin([this](const UserMessage& problem) { report(problem); });
    createActiveRecord();
    writeMetadata(pendingAudioFiles::inProgressReason);
    recordingLog(QStringLiteral("📁 Early metadata saved for crash recovery: %1").arg(m_facts.recordingId));
}

void RecordingArchive::createActiveRecord() {
    if (!m_stores.history) {
        recordingLog(QStringLiteral("⚠️ ModelContext not available, skipping active record creation "), LogLevel::warn);
        return;
    }
    if (userId().isEmpty()) {
        recordingLog(QStringLiteral("⚠️ No authenticated user, skipping active record creation "), LogLevel::warn);
        return;
    }
    if (outcomeRecord() && saveHistory())
        recordingLog(QStringLiteral("📝 Active record created: %1").arg(m_record->id.toString(QUuid::WithoutBraces)));
}

void RecordingArchive::beginProcessing() {
    if (m_isSettled || !m_record)
        return;
    m_record->status = RecordStatus::processing;
    m_record->durationMs = m_audio.durationMs();
    saveHistory();
}

void RecordingArchive::complete(const ArchivedText& text, bool keepAudio) {
    if (!settle())
        return;
    m_audio.finalize();
    const bool keepsBackup = m_audio.isOnDisk() && keepAudio;
    const auto record = outcomeRecord();
    if (record) {
        recordingLog(QStringLiteral("💾 Saving transcription locally (text stays on device)... "));
        applyText(*record, text);
        record->status = RecordStatus::completed;
        record->audioRetainedId = keepsBackup ? std::optional(m_facts.recordingId) : std::nullopt;
    }
    // Save the record before touching the audio: after a crash in between, the recovery finds audio beside a finished
    // record and does not transcribe it a second time.
    if (!record || !saveHistory()) {
        // Nowhere to put the text: it will come from the audio again, once there is a history to hold it.
        writeMetadata(QStringLiteral("history_unavailable"));
        return;
    }
    recordingLog(QStringLiteral("✅ Active record finalized: %1").arg(record->id.toString(QUuid::WithoutBraces)));
    recordingLog(QStringLiteral("✅ Transcription saved locally "));
    recordingLog(QStringLiteral("🔒 Text stays on device "));
    recordingLog(text.metricsId
                     ? QStringLiteral("✅ Local record updated with metricsId %1").arg(*text.metricsId)
                     : QStringLiteral("ℹ️ No metricsId received from server; leaving local record unlinked "));
    if (m_stores.tags)
        tryHistory([&] { m_stores.tags->applyAutoTag(record); });
    if (keepsBackup) {
        writeMetadata(QStringLiteral("completed"));
        AudioFileWriter::markCompleted(m_facts.recordingId);
        recordingLog(QStringLiteral("🎧 Audio retained for playback: %1").arg(m_facts.recordingId));
    } else {
        m_audio.deleteFiles();
        recordingLog(QStringLiteral("🗑️ Audio backup file cleaned up (recording succeeded) "));
    }
}

void RecordingArchive::keepPending(const QString& reason, const ArchivedText& text) {
    if (!settle())
        return;
    m_audio.finalize();
    if (!m_audio.isOnDisk()) {
        // Nothing reached the disk. What text there is must not be lost with it.
        if (text.text.isEmpty()) {
            removeRecord();
        } else if (const auto record = outcomeRecord()) {
            applyText(*record, text);
            record->status = RecordStatus::completed;
            saveHistory();
        }
        m_audio.deleteFiles();
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
    m_audio.finalize();
    if (!m_audio.isOnDisk()) {
        removeRecord();
        m_audio.deleteFiles();
        return;
    }
    writeMetadata(reason);
    if (const auto record = outcomeRecord()) {
        record->status = RecordStatus::unrecognized;
        record->durationMs = m_audio.durationMs();
        record->audioRetainedId = m_facts.recordingId;
        // Without the verdict in the history the audio would be found nowhere; so it waits instead.
        if (saveHistory())
            AudioFileWriter::markCompleted(m_facts.recordingId);
    }
}

void RecordingArchive::discard() {
    if (!settle())
        return;
    m_audio.finalize();
    m_audio.deleteFiles();
    removeRecord();
}

bool RecordingArchive::settle() {
    if (m_isSettled)
        return false;
    m_isSettled = true;
    return true;
}

RecordPointer RecordingArchive::outcomeRecord() {
    if (m_record || !m_stores.history || userId().isEmpty())
        return m_record;
    const auto record = TranscriptionRecord::recordingInProgress(
        m_userId, m_facts.targetApp.isEmpty() ? std::nullopt : std::optional(m_facts.targetApp), m_facts.isMeeting);
    record->createdAt = m_facts.createdAt;
    record->clientRecordingId = m_facts.recordingId;
    if (tryHistory([&] { m_stores.history->insert(record); }))
        m_record = record;
    return m_record;
}

void RecordingArchive::removeRecord() {
    if (!m_record)
        return;
    recordingLog(
        QStringLiteral("🧹 Deleted empty processing record: %1").arg(m_record->id.toString(QUuid::WithoutBraces)));
    if (tryHistory([&] { m_stores.history->remove(m_record); }))
        saveHistory();
    m_record.reset();
}

void RecordingArchive::applyText(TranscriptionRecord& record, const ArchivedText& text) const {
    record.text = text.text;
    record.wordCount = countWords(text.text);
    record.durationMs = m_audio.durationMs();
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
    return tryHistory([this] { m_stores.history->save(); });
}

bool RecordingArchive::tryHistory(const std::function<void()>& work) {
    try {
        work();
        return true;
    } catch (const StoreError& error) {
        recordingLog(QStringLiteral("❌ The history could not be saved: %1").arg(reasonOf(error)), LogLevel::error);
        report(errorTexts::of(error.cause()));
        return false;
    }
}

void RecordingArchive::writeMetadata(const QString& reason) {
    PendingAudioMetadata metadata;
    metadata.createdAt = m_facts.createdAt;
    metadata.primaryLanguage = m_facts.primaryLanguage;
    metadata.secondaryLanguage = m_facts.secondaryLanguage;
    metadata.targetApp = m_facts.targetApp;
    metadata.targetAppPid = m_facts.targetAppPid;
    metadata.userId = userId();
    metadata.reason = reason;
    metadata.clientRecordingId = m_facts.recordingId;
    m_audio.saveMetadata(metadata);
}

} // namespace quillo
