#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <cstdint>
#include <optional>

namespace quillo {

/// Which records to fetch, newest first. Empty fields do not restrict the result; all given conditions must hold.
struct RecordQuery {
    QStringList statuses; ///< any of these
    std::optional<QString> userId;
    std::optional<QString> sessionId;
    std::optional<QString> pendingAudioId;
    std::optional<QString> clientRecordingId;
    std::optional<QString> audioRetainedId;
    std::optional<QString> sourceDevice;
    /// The user's search: every word must occur in text, title, application or tags; the last word may be incomplete.
    /// Case and diacritics are ignored. A blank search does not restrict; one without any letter finds nothing.
    QString search;
    QStringList tagNames; ///< all of these, as written
    bool favoritesOnly = false;
    bool meetingsOnly = false;
    bool unsyncedOnly = false;              ///< `syncedAt` is unset
    std::optional<QDateTime> createdBefore; ///< exclusive
    std::optional<QDateTime> createdAfter;  ///< inclusive
    /// Continues after this record, the last of the previous page. Equally fast for every page.
    std::optional<QUuid> after;
    int64_t limit = -1; ///< negative: all
    int64_t offset = 0; ///< takes time proportional to it; prefer `after` for paging
};

} // namespace quillo
