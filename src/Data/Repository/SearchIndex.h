#pragma once

#include "Data/Database.h"

namespace quillo::searchIndex {

/// The order of the history and its full-text index: tables of our own beside the records, kept right by triggers.
///
/// `QuilloOrder` gives every record a position that grows with its creation date, so that the newest matches of a
/// search are the highest row numbers of `QuilloSearch` and a query ends as soon as it has enough.

/// Whether all of it is there, made by the present rules.
bool isComplete(const Database& database);
void drop(Database& database);
/// From the records as they are, replacing what there was.
void build(Database& database);

} // namespace quillo::searchIndex
