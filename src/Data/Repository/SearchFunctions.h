#pragma once

#include <QByteArray>
#include <QString>

struct sqlite3;

namespace quillo {

/// Registers what the store's triggers and queries call on this connection:
///
/// - `quillo_words(text, title, application, tagNamesData, isFavorite)`: the words that a record is found by;
/// - `quillo_long_words(...)`: those of them that are listed to complete what the user types, as a JSON array;
/// - `quillo_position(createdAt)`: the first of the 16 places that the records of this millisecond have in the order of
///   the history.
///
/// A program without these functions cannot write records, and so cannot leave the index stale.
void registerSearchFunctions(sqlite3* database);

/// Seconds from 2001-01-01 UTC, the store's way to keep dates, to a place in the order of the history.
int64_t positionOf(double createdAt);

} // namespace quillo
