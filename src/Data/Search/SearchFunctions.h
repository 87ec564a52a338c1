#pragma once

#include <QByteArray>
#include <QString>

struct sqlite3;

namespace quillo {

/// Registers on this connection the functions that the store's triggers and queries call:
///
/// - `quillo_words(text, title, application, tagNamesData, isFavorite)`: the words by which a record is found.
/// - `quillo_long_words(...)`: those of them that are listed to complete an incomplete word, as a JSON array.
/// - `quillo_position(createdAt)`: the first of the 16 positions reserved for the records of this millisecond in the
///   order of the history.
///
/// A program without these functions cannot write records and therefore cannot make the index stale.
void registerSearchFunctions(sqlite3* database);

/// Converts seconds since 2001-01-01 UTC, the store's date format, to a position in the order of the history.
int64_t positionOf(double createdAt);

} // namespace quillo
