#pragma once

#include "Concurrency/Clock.h"
#include "Data/ModelContext.h"
#include "Services/Upload/TranscriptionFileResponse.h"

#include <QString>

namespace quillo {

/// The history's side of the queue: the records of a recording's audio, and what becomes of them. Main thread.
///
/// Nothing here throws: a store that refuses is logged, and the change stays in memory for a later save.
class PendingRecords {
public:
    /// Both outlive the object.
    PendingRecords(ModelContext& context, const Clock& clock) : m_context(context), m_clock(clock) {}

    /// Those that wait for their text, oldest first.
    QList<RecordPointer> pending();
    /// Those of one audio, whatever became of them: by the audio they wait with, the audio they keep, and the name
    /// under which the server knows the recording. Oldest first.
    QList<RecordPointer> ofAudio(const QString& audioId, const std::optional<QString>& clientRecordingId = {});
    /// Those that wait with this audio.
    QList<RecordPointer> pendingWith(const QString& audioId);

    void insert(const RecordPointer& record);
    bool save();

    /// One more attempt that failed.
    void recordAttempt(const QList<RecordPointer>& records);
    /// Counts an empty result; true when there have been so many that another attempt is pointless.
    bool recordEmptyResult(const QList<RecordPointer>& records);
    /// Ends the wait without a text; the audio is kept.
    static void giveUp(const QList<RecordPointer>& records, const QString& status);
    /// Begins the wait anew, whatever the records were.
    void makePending(const QList<RecordPointer>& records, const QString& audioId);
    /// Ends the wait for the next attempt of those that have some left; returns of how many. The attempts stay counted,
    /// so that what fails whenever the server works comes to its end.
    int resetBackoff(const QList<RecordPointer>& records);

    // Success. The first record gets the text, and so do the others, except for empty duplicates: those are removed.
    // Returns the first; none when `records` is empty.
    RecordPointer applyText(const QList<RecordPointer>& records, const TranscriptionFileResponse& response);
    RecordPointer applyDiarization(const QList<RecordPointer>& records, const DiarizeResponse& response);

private:
    QList<RecordPointer> fetch(const RecordQuery& query);
    QList<RecordPointer> withoutDuplicates(const QList<RecordPointer>& records);
    void finish(TranscriptionRecord& record, const QString& text);

    ModelContext& m_context;
    const Clock& m_clock;
};

} // namespace quillo
