#pragma once

#include <QProcessEnvironment>

namespace quillo {

/// The protocol through which programs reach the windows and keys of the desktop.
enum class DesktopProtocol { none, x11, wayland };

/// Detects it from the environment of a process. A Wayland session counts as Wayland although an X server nearly always
/// runs too: that server shows us only its own clients, so key events, synthetic keys and windows would seem to work
/// but reach nothing else. QUILLO_DESKTOP_PROTOCOL ("x11" or "wayland") overrides the detection.
[[nodiscard]] DesktopProtocol desktopProtocol(const QProcessEnvironment& environment);

/// The Qt platform for windows; empty to let Qt choose. A Wayland window can neither choose its position nor refuse the
/// focus, which the floating pill must do; a window of the X server that most Wayland desktops run can.
[[nodiscard]] QByteArray windowPlatform(const QProcessEnvironment& environment);

} // namespace quillo
