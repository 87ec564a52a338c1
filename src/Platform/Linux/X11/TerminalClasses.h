#pragma once

#include <QString>

namespace quillo {

/// Whether a window class is that of a known terminal emulator; others are recognised by their desktop file.
[[nodiscard]] bool isTerminalClass(const QString& windowClass);

} // namespace quillo
