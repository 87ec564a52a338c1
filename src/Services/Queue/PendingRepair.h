#pragma once

#include "Services/Queue/PendingRecords.h"
#include "Services/Recordings/PendingAudioMetadata.h"

#include <QDateTime>
#include <QString>

namespace quillo {

/// Brings history and disk together after whatever ended the last run, so that every recording's audio is either in the
/// history with its text or in the queue.
///
/// - A record that waits for audio that is gone is settled.
/// - Audio that waits and has a record with a text is marked as completed: the kill came before the mark.
/// - Audio without a record, or whose record has no text, joins the queue; audio without metadata with what can be told
///   from the file.
/// - Files that belong to no audio are removed, unless they are young.
struct PendingRepair {
    QDateTime now;       ///< UTC
    QDateTime startedAt; ///< of this run, UTC: recordings from then on are at work and not left over
    QString userId;      ///< whose recordings without a name are; may be empty

    int adopted = 0;
    int orphans = 0; ///< records without audio
    int settled = 0; ///< audio whose text was there
    int removed = 0; ///< files

    /// Main thread. Failures are logged; what could not be repaired waits for the next start.
    void run(PendingRecords& records);

private:
    void settleRecord(PendingRecords& records, const RecordPointer& record);
    void settleAudio(PendingRecords& records, const PendingAudioMetadata& metadata);
    void adoptStrayAudio(PendingRecords& records);
    void adopt(PendingRecords& records, const PendingAudioMetadata& metadata);
    void removeStaleFiles();
};

} // namespace quillo
