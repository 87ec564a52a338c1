#pragma once

#include "Localization/LocalizationManager.h"
#include "Platform/Linux/Wayland/DesktopProtocol.h"

#include <QString>

namespace quillo {

/// The desktops whose way to bind a key to a command is known exactly.
enum class DesktopShell { gnome, plasma, sway, hyprland, xfce, other };

/// Which one the environment names (XDG_CURRENT_DESKTOP, else the compositor's own variables).
[[nodiscard]] DesktopShell desktopShell(const QProcessEnvironment& environment);

/// `program`, a path, as a word of a command line.
[[nodiscard]] QString shellWord(const QString& program);

/// How to bind a key to dictation on that desktop, as plain text in the interface language: steps, or lines for a
/// configuration file, with `program` as the path of the application. Also says what the desktop cannot do.
[[nodiscard]] QString keyBindingGuide(DesktopShell shell, DesktopProtocol protocol, const QString& program,
                                      const LocalizationManager& texts = LocalizationManager::shared());

} // namespace quillo
