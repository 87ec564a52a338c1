#pragma once

#include "Data/Database.h"

namespace quillo::storeSchema {

/// The number that this program gives the files it writes (SQLite's "user_version"). Files of the object store that
/// the history came from carry 0.
inline constexpr int64_t version = 1;

/// Brings the file to `version` in one transaction, or makes everything in an empty one: tables and columns that are
/// missing are added, rows without identity, date or status get one, and what is unknown stays as it is. The tables
/// and triggers of our own (order and full-text index) are made anew when any is missing or was made by other rules.
///
/// A file of a later version is left as it is. It throws StoreError `newer` when it says that it needs a later program;
/// otherwise it is used like any other.
void prepare(Database& database);

/// Throws StoreError `newer` or `other` when the file is not as `prepare` leaves it.
void requirePrepared(const Database& database);

/// The entity's number in this file, which its rows carry.
int64_t entityNumber(Database& database, const char* entity);
/// A row number of the entity that was never used before.
int64_t takeKey(Database& database, const char* entity, const char* table);

} // namespace quillo::storeSchema
