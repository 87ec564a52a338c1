#include "Platform/Linux/Wayland/DesktopProtocol.h"

#include <gtest/gtest.h>

namespace quillo {
namespace {

/// Of words NAME=value.
QProcessEnvironment environment(const char* words) {
    QProcessEnvironment result;
    for (const auto& word : QString::fromLatin1(words).split(u' ', Qt::SkipEmptyParts))
        result.insert(word.section(u'=', 0, 0), word.section(u'=', 1));
    return result;
}

TEST(DesktopProtocolTest, AnXServerBesideTheCompositorDoesNotMakeItX11) {
    using enum DesktopProtocol;
    const std::tuple<const char*, const char*, DesktopProtocol> cases[] = {
        {"nothing", "", none},
        {"X11 without a session type", "DISPLAY=:0", x11},
        {"GNOME on Wayland", "XDG_SESSION_TYPE=wayland WAYLAND_DISPLAY=wayland-0 DISPLAY=:0", wayland},
        {"sway from a text console", "XDG_SESSION_TYPE=tty WAYLAND_DISPLAY=wayland-1 DISPLAY=:0", wayland},
        {"a program that was kept from the compositor", "XDG_SESSION_TYPE=wayland DISPLAY=:0", wayland},
        {"an X11 session with a compositor in a window", "XDG_SESSION_TYPE=x11 DISPLAY=:0 WAYLAND_DISPLAY=wayland-0",
         x11},
        {"X11 asked for", "QUILLO_DESKTOP_PROTOCOL=x11 XDG_SESSION_TYPE=wayland WAYLAND_DISPLAY=wayland-0", x11},
        {"Wayland asked for", "QUILLO_DESKTOP_PROTOCOL=wayland DISPLAY=:0", wayland},
        {"nonsense asked for", "QUILLO_DESKTOP_PROTOCOL=beos DISPLAY=:0", x11},
    };
    for (const auto& [name, variables, expected] : cases)
        EXPECT_EQ(desktopProtocol(environment(variables)), expected) << name;
}

TEST(DesktopProtocolTest, WindowsGoThroughTheXServerUnlessTheUserChose) {
    const std::pair<const char*, QByteArray> cases[] = {
        {"WAYLAND_DISPLAY=wayland-0 DISPLAY=:0", "xcb;wayland"},
        {"WAYLAND_DISPLAY=wayland-0", {}},
        {"WAYLAND_DISPLAY=wayland-0 DISPLAY=:0 QT_QPA_PLATFORM=wayland", {}}};
    for (const auto& [variables, expected] : cases)
        EXPECT_EQ(windowPlatform(environment(variables)), expected) << variables;
}

} // namespace
} // namespace quillo
