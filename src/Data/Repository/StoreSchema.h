#pragma once

#include "Data/Storage/Database.h"

namespace quillo::storeSchema {

/// The version of the files that this program writes (SQLite's "user_version"). Files of the earlier object store have
/// 0; version 2 added "QuilloDeleted".
inline constexpr int64_t version = 2;

/// Upgrades the file to `version` in one transaction, or creates everything in an empty one. Missing tables and columns
/// are added, rows without identity, date or status get one, and unknown content is preserved. Our own tables and
/// triggers (order and full-text index) are rebuilt when any is missing or was made by other rules.
///
/// A file of a later version is not changed. Throws StoreError `newer` when the file requires a later program;
/// otherwise it is used like any other.
void prepare(Database& database);

/// Throws StoreError `newer` or `other` when the file is not in the state that `prepare` produces.
void requirePrepared(const Database& database);

/// The entity's number in this file, which is stored in its rows.
int64_t entityNumber(Database& database, const char* entity);
/// A row number of the entity that has never been used.
int64_t takeKey(Database& database, const char* entity, const char* table);

} // namespace quillo::storeSchema
