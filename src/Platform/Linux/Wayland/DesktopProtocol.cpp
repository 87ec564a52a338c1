#include "Platform/Linux/Wayland/DesktopProtocol.h"

namespace quillo {

DesktopProtocol desktopProtocol(const QProcessEnvironment& environment) {
    const auto chosen = environment.value(QStringLiteral("QUILLO_DESKTOP_PROTOCOL"));
    if (chosen == u"x11")
        return DesktopProtocol::x11;
    if (chosen == u"wayland")
        return DesktopProtocol::wayland;
    // The session type is missing where a compositor was started by hand ("tty"), and names the outer session in a
    // compositor that runs in a window.
    const auto type = environment.value(QStringLiteral("XDG_SESSION_TYPE"));
    const bool hasX = !environment.value(QStringLiteral("DISPLAY")).isEmpty();
    if (type == u"wayland")
        return DesktopProtocol::wayland;
    if (type == u"x11" && hasX)
        return DesktopProtocol::x11;
    if (!environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty())
        return DesktopProtocol::wayland;
    return hasX ? DesktopProtocol::x11 : DesktopProtocol::none;
}

QByteArray windowPlatform(const QProcessEnvironment& environment) {
    if (!environment.value(QStringLiteral("QT_QPA_PLATFORM")).isEmpty() ||
        environment.value(QStringLiteral("DISPLAY")).isEmpty() || desktopProtocol(environment) == DesktopProtocol::none)
        return {};
    // Qt tries the second if the first fails.
    return QByteArrayLiteral("xcb;wayland");
}

} // namespace quillo
