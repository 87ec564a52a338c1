#pragma once

#include <QByteArray>
#include <QIcon>

namespace quillo {

/// The drawing of a resource of the interface; a missing one is a fault of the build and ends the program.
[[nodiscard]] QByteArray readResource(const QString& path);

/// `drawing` in the sizes that panels and title bars use; `badge`, a drawing too, is set into the lower right corner
/// unless it is empty. Both are SVG.
[[nodiscard]] QIcon renderIcon(const QByteArray& drawing, const QByteArray& badge = {});

/// The application's own icon, for windows.
[[nodiscard]] QIcon applicationIcon();

} // namespace quillo
