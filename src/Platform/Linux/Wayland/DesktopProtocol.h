#pragma once

#include <QProcessEnvironment>

namespace quillo {

/// By which protocol the desktop that we run on lets programs at its windows and keys.
enum class DesktopProtocol { none, x11, wayland };

/// Tells it from the environment of a process. A Wayland session counts as such though an X server is nearly always
/// there too: that one shows us only its own clients, so its key events, synthetic keys and windows would seem to work
/// and reach nothing. QUILLO_DESKTOP_PROTOCOL ("x11" or "wayland") overrides what is found.
[[nodiscard]] DesktopProtocol desktopProtocol(const QProcessEnvironment& environment);

/// The Qt platform to show windows with there; empty to leave it to Qt. A window on Wayland can neither place itself
/// nor refuse the focus, as the floating pill must; through the X server that most Wayland desktops bring it can.
[[nodiscard]] QByteArray windowPlatform(const QProcessEnvironment& environment);

} // namespace quillo
