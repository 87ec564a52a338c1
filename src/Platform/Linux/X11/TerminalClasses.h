#pragma once

#include <QString>

namespace quillo {

/// Whether a window class is that of a terminal emulator we know by name; others tell by their desktop file.
[[nodiscard]] bool isTerminalClass(const QString& windowClass);

} // namespace quillo
