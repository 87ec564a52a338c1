#pragma once

#include "Platform/Linux/Wayland/DesktopProtocol.h"

#include <QString>

namespace quillo {

/// The desktops for which we know exactly how to bind a key to a command.
enum class DesktopShell { gnome, plasma, sway, hyprland, xfce, other };

/// The desktop named by the environment (XDG_CURRENT_DESKTOP, otherwise the compositor's own variables).
[[nodiscard]] DesktopShell desktopShell(const QProcessEnvironment& environment);

/// `program`, a path, as a word of a command line.
[[nodiscard]] QString shellWord(const QString& program);

/// How to bind a key to dictation on that desktop, as plain text for a terminal: steps, or lines for a configuration
/// file, with `program` as the path of the application. Also says what the desktop cannot do.
[[nodiscard]] QString keyBindingGuide(DesktopShell shell, DesktopProtocol protocol, const QString& program);

} // namespace quillo
