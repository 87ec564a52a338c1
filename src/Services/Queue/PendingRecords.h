#pragma once

#include "Concurrency/Clock.h"
#include "Data/ModelContext.h"
#include "Services/Upload/TranscriptionFileResponse.h"

#include <QString>

namespace quillo {

/// The history's side of the queue: the records of a recording's audio and their status. Main thread.
///
/// Nothing here throws: a failed save is logged, and the change stays in memory for a later one.
class PendingRecords {
public:
    /// Both must outlive the object.
    PendingRecords(ModelContext& context, const Clock& clock) : m_context(context), m_clock(clock) {}

    /// The waiting records, oldest first.
    QList<RecordPointer> pending();
    /// All records of one audio, in any status: found by the pending audio, the retained audio and the server's
    /// recording id. Oldest first.
    QList<RecordPointer> ofAudio(const QString& audioId, const std::optional<QString>& clientRecordingId = {});
    /// The records that wait with this audio.
    QList<RecordPointer> pendingWith(const QString& audioId);

    void insert(const RecordPointer& record);
    /// Also saves what others changed and could not save.
    bool save();
    [[nodiscard]] bool hasChanges() const { return m_context.hasChanges(); }

    /// Counts a failed attempt.
    void recordAttempt(const QList<RecordPointer>& records);
    /// Counts an empty result; true when another attempt is pointless.
    bool recordEmptyResult(const QList<RecordPointer>& records);
    /// Ends the wait without a text; the audio is kept.
    static void giveUp(const QList<RecordPointer>& records, const QString& status);
    /// Restarts the wait, in any status of the records.
    void makePending(const QList<RecordPointer>& records, const QString& audioId);
    /// Makes records with remaining attempts due now; returns their number. The attempts stay counted, so that a
    /// recording that always fails is given up eventually.
    int resetBackoff(const QList<RecordPointer>& records);

    // Success: all records get the text, except empty duplicates of the first, which are removed. Returns the first;
    // null when `records` is empty.
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
