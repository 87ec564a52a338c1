#include "App/HistoryActions.h"

#include "Services/Recordings/AudioFileWriter.h"

#include <stdexcept>

namespace quillo::historyActions {

namespace {

[[noreturn]] void refuse(const QString& why) { throw std::runtime_error(why.toStdString()); }

bool isUsed(ModelContext& history, const QString& audioId) {
    return history.count({.pendingAudioId = audioId}) > 0 || history.count({.audioRetainedId = audioId}) > 0;
}

} // namespace

RecordPointer recordFor(ModelContext& history, const QString& id) {
    const auto record = history.record(QUuid(id));
    if (!record)
        refuse(QStringLiteral("The history has no record %1.").arg(id));
    if (record->isBusy())
        refuse(QStringLiteral("This dictation is not finished yet. Try again in a moment."));
    return record;
}

void remove(ModelContext& history, const QString& id) {
    const auto record = recordFor(history, id);
    const auto audioId = record->effectiveAudioId();
    history.remove(record);
    const bool deletesAudio = audioId && !isUsed(history, *audioId);
    // Audio that waits would be adopted by the next start, were the program killed before the file is gone.
    if (deletesAudio)
        AudioFileWriter::markCompleted(*audioId);
    try {
        history.save();
    } catch (const StoreError&) {
        history.rollback();
        throw;
    }
    if (deletesAudio && !AudioFileWriter::deleteFiles(*audioId))
        refuse(QStringLiteral("The record is deleted, but its audio could not be: %1/%2.pcm. Delete it by hand.")
                   .arg(AudioFileWriter::pendingAudioDirectory(), *audioId));
}

void retranscribe(ModelContext& history, PendingTranscriptionManager* queue, const QString& id,
                  const QString& language) {
    const auto record = recordFor(history, id);
    const auto audioId = record->effectiveAudioId();
    if (!queue)
        refuse(QStringLiteral("Quillo is still starting. Try again in a moment."));
    if (!audioId || !queue->retranscribeRecording(*audioId, language))
        refuse(QStringLiteral("The audio of this record is no longer on the disk, so it cannot be transcribed again."));
}

} // namespace quillo::historyActions
