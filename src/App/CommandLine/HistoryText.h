#pragma once

#include "Data/Models/TranscriptionRecord.h"
#include "Data/Repository/RecordSummary.h"

#include <QTimeZone>

namespace quillo::historyText {

/// The number of characters shown of an id.
inline constexpr qsizetype shownIdLength = 8;

// For a terminal: control characters in a record's text are removed. Times are in `zone`.
/// A line for each record, newest first.
QString list(const QList<RecordSummary>& records, const QTimeZone& zone = QTimeZone::systemTimeZone());
/// The details of one record.
QString details(const TranscriptionRecord& record, const QTimeZone& zone = QTimeZone::systemTimeZone());
/// The text without control characters.
QString plain(const QString& text);

// For programs. Keys are never renamed or removed; times are UTC, ISO 8601 with milliseconds.
/// One array.
QByteArray jsonList(const QList<RecordPointer>& records);
/// One object, with the segments of a meeting.
QByteArray jsonDetails(const TranscriptionRecord& record);

} // namespace quillo::historyText
