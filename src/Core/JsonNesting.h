#pragma once

#include <QByteArray>

namespace quillo {

/// Whether arrays and objects nest deeper than `deepest` in `json`. Nesting is counted in the bytes before anything is
/// parsed, so that a hostile text costs one pass and no memory. Accepts any bytes; any thread.
bool isNestedTooDeep(const QByteArray& json, int deepest);

} // namespace quillo
