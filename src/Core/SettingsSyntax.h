#pragma once

#include <QByteArray>
#include <QString>

namespace quillo {

/// Why `bytes` are not a settings file; empty when they are one. QSettings skips lines that it does not understand, and
/// its next write would delete them.
[[nodiscard]] QString whyNoSettings(const QByteArray& bytes);

} // namespace quillo
