#include "Services/History/HistoryActions.h"

#include "Core/SupportedLanguages.h"
#include "Services/Queue/PendingTranscriptionManager.h"
#include "Services/Recordings/AudioFileWriter.h"

namespace quillo::historyActions {

namespace {

using Code = HistoryError::Code;

bool isUsed(ModelContext& history, const QString& audioId) {
    return history.count({.pendingAudioId = audioId}) > 0 || history.count({.audioRetainedId = audioId}) > 0;
}

} // namespace

RecordPointer recordBeginningWith(ModelContext& history, const QString& beginning) {
    constexpr int64_t shown = 5;
    const auto ids = history.idsBeginningWith(beginning, shown + 1);
    if (ids.size() > 1) {
        QStringList candidates;
        for (const auto& id : ids.first(std::min<qsizetype>(ids.size(), shown)))
            candidates.append(id.toString(QUuid::WithoutBraces));
        if (ids.size() > shown)
            candidates.append(QStringLiteral("…"));
        throw HistoryError(Code::ambiguousId, {beginning, candidates.join(QStringLiteral(", "))});
    }
    // Another process may delete it between the two queries.
    const auto record = ids.isEmpty() ? nullptr : history.record(ids.constFirst());
    if (!record)
        throw HistoryError(Code::noRecord, {beginning});
    return record;
}

RecordPointer idleRecord(ModelContext& history, const QString& id) {
    const auto record = history.record(QUuid(id));
    if (!record)
        throw HistoryError(Code::noRecord, {id});
    if (record->isBusy())
        throw HistoryError(Code::recordBusy);
    return record;
}

void remove(ModelContext& history, const QString& id) {
    const auto record = idleRecord(history, id);
    const auto audioId = record->effectiveAudioId();
    history.remove(record);
    const bool deletesAudio = audioId && !isUsed(history, *audioId);
    // Mark waiting audio as finished first: if the program is killed before the file is deleted, the next start would
    // recover it.
    if (deletesAudio)
        AudioFileWriter::markCompleted(*audioId);
    try {
        history.save();
    } catch (const StoreError&) {
        history.rollback();
        throw;
    }
    if (deletesAudio && !AudioFileWriter::deleteFiles(*audioId))
        throw HistoryError(Code::audioNotDeleted,
                           {QStringLiteral("%1/%2.pcm").arg(AudioFileWriter::pendingAudioDirectory(), *audioId)});
}

void retranscribe(ModelContext& history, PendingTranscriptionManager* queue, const QString& id,
                  const QString& language) {
    if (!language.isEmpty() && language != SupportedLanguages::automatic && !SupportedLanguages::contains(language))
        throw HistoryError(Code::unknownLanguage, {language});
    const auto record = idleRecord(history, id);
    const auto audioId = record->effectiveAudioId();
    if (!queue)
        throw HistoryError(Code::queueNotReady);
    if (!audioId || !queue->retranscribeRecording(*audioId, language))
        throw HistoryError(Code::audioGone);
}

void play(const TranscriptionRecord& record, AudioPlayback& playback, std::stop_token stop) {
    if (!record.hasAudioOnDisk())
        throw HistoryError(Code::audioNotKept);
    playback.play(audioPath(*record.effectiveAudioId()), stop);
}

} // namespace quillo::historyActions
