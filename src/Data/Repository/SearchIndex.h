#pragma once

#include "Data/Storage/Database.h"

namespace quillo::searchIndex {

/// The order of the history and its full-text index: our own tables beside the records, maintained by triggers.
///
/// `QuilloOrder` gives every record a position that grows with its creation date, so that the newest matches of a
/// search are the highest row numbers of `QuilloSearch` and a query ends as soon as it has enough.

/// Whether the index is complete and was made by the current rules.
bool isComplete(const Database& database);
void drop(Database& database);
/// Rebuilds the index from the records.
void build(Database& database);

} // namespace quillo::searchIndex
