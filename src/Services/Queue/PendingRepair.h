#pragma once

#include "Services/Queue/PendingRecords.h"
#include "Services/Recordings/PendingAudioMetadata.h"

#include <QDateTime>
#include <QString>

namespace quillo {

/// Reconciles history and disk after the end of the last run, so that every recording's audio is either in the history
/// with its text or in the queue.
///
/// - A record whose audio is missing stops waiting.
/// - Waiting audio whose record has a text is marked as completed: the program was killed before it could do so.
/// - Audio without a record, or whose record has no text, joins the queue. Metadata is reconstructed from the file if
///   missing.
/// - Files without audio are removed, unless they are recent.
struct PendingRepair {
    QDateTime now;       ///< UTC
    QDateTime startedAt; ///< of this run, UTC: later recordings are in progress and not left over
    QString userId;      ///< the owner of recordings without a user; may be empty

    int adopted = 0;
    int orphans = 0; ///< records without audio
    int settled = 0; ///< audio whose text already existed
    int removed = 0; ///< files

    /// Main thread. Failures are logged and retried at the next start.
    void run(PendingRecords& records);
    /// Adopts what was recorded in this run while there was no user, and so has no record. Main thread.
    void adoptOwnerless(PendingRecords& records);

private:
    void settleRecord(PendingRecords& records, const RecordPointer& record);
    void settleAudio(PendingRecords& records, const PendingAudioMetadata& metadata);
    void adoptStrayAudio(PendingRecords& records);
    void adopt(PendingRecords& records, const PendingAudioMetadata& metadata);
    void removeStaleFiles();
};

} // namespace quillo
