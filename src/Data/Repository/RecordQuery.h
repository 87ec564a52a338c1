#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <cstdint>
#include <optional>

namespace quillo {

/// Which records to fetch, newest first. What is left empty does not restrict; everything given must hold.
struct RecordQuery {
    QStringList statuses; ///< any of these
    std::optional<QString> userId;
    std::optional<QString> sessionId;
    std::optional<QString> pendingAudioId;
    std::optional<QString> clientRecordingId;
    std::optional<QString> audioRetainedId;
    std::optional<QString> sourceDevice;
    /// What the user typed: every word must stand in text, title, application or tags, the last one may be only begun.
    /// Case and diacritics do not matter. A blank search does not restrict; one without any letter finds nothing.
    QString search;
    QStringList tagNames; ///< all of these, as written
    bool favoritesOnly = false;
    bool meetingsOnly = false;
    bool unsyncedOnly = false;              ///< `syncedAt` is unset
    std::optional<QDateTime> createdBefore; ///< exclusive
    std::optional<QDateTime> createdAfter;  ///< inclusive
    /// Continues behind this record, the last of the page before: as fast for the last page as for the first.
    std::optional<QUuid> after;
    int64_t limit = -1; ///< negative: all
    int64_t offset = 0; ///< costs a step each; page with `after`
};

} // namespace quillo
