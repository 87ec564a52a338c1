#pragma once

#include <QByteArray>

namespace quillo {

/// Whether arrays and objects nest deeper than `deepest` in `json`. Counts in the bytes before parsing, so that a
/// hostile text costs one pass and no memory. Accepts any bytes; any thread.
bool isNestedTooDeep(const QByteArray& json, int deepest);

} // namespace quillo
