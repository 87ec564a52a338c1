#pragma once

#include <QByteArray>
#include <QIcon>

namespace quillo {

/// The content of a drawing in the resources; a missing one is a build error and ends the program.
[[nodiscard]] QByteArray readResource(const QString& path);

/// `drawing` in the sizes for panels and title bars, with `badge` in the lower right corner unless it is empty. Both
/// are SVG.
[[nodiscard]] QIcon renderIcon(const QByteArray& drawing, const QByteArray& badge = {});

/// The application's own icon, for windows.
[[nodiscard]] QIcon applicationIcon();

} // namespace quillo
