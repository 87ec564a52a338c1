#pragma once

#include "Data/Models/TranscriptionRecord.h"
#include "Data/Repository/RecordSummary.h"

#include <QTimeZone>

namespace quillo::historyText {

/// Ids are shown by this many of their characters.
inline constexpr qsizetype shownIdLength = 8;

// For a terminal: nothing of a record's text reaches it as a control character. Times are those of `zone`.
/// A line for each record, newest first.
QString list(const QList<RecordSummary>& records, const QTimeZone& zone = QTimeZone::systemTimeZone());
/// Everything worth reading of one record.
QString details(const TranscriptionRecord& record, const QTimeZone& zone = QTimeZone::systemTimeZone());
/// The text as it may go to a terminal.
QString plain(const QString& text);

// For programs. Keys are never renamed or removed; times are UTC, ISO 8601 with milliseconds.
/// One array.
QByteArray jsonList(const QList<RecordPointer>& records);
/// One object, with the segments of a meeting.
QByteArray jsonDetails(const TranscriptionRecord& record);

} // namespace quillo::historyText
