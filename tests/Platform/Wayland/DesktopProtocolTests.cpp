#include "Platform/Linux/Wayland/DesktopProtocol.h"

#include <gtest/gtest.h>

namespace quillo {
namespace {

QProcessEnvironment environment(const std::vector<std::pair<const char*, const char*>>& variables) {
    QProcessEnvironment result;
    for (const auto& [name, value] : variables)
        result.insert(QString::fromLatin1(name), QString::fromLatin1(value));
    return result;
}

TEST(DesktopProtocolTest, AnXServerBesideTheCompositorDoesNotMakeItX11) {
    const struct {
        const char* name;
        std::vector<std::pair<const char*, const char*>> variables;
        DesktopProtocol expected;
    } cases[] = {
        {"nothing", {}, DesktopProtocol::none},
        {"X11 without a session type", {{"DISPLAY", ":0"}}, DesktopProtocol::x11},
        {"GNOME on Wayland",
         {{"XDG_SESSION_TYPE", "wayland"}, {"WAYLAND_DISPLAY", "wayland-0"}, {"DISPLAY", ":0"}},
         DesktopProtocol::wayland},
        {"sway from a text console",
         {{"XDG_SESSION_TYPE", "tty"}, {"WAYLAND_DISPLAY", "wayland-1"}, {"DISPLAY", ":0"}},
         DesktopProtocol::wayland},
        {"a program that was kept from the compositor",
         {{"XDG_SESSION_TYPE", "wayland"}, {"DISPLAY", ":0"}},
         DesktopProtocol::wayland},
        {"an X11 session with a compositor in a window",
         {{"XDG_SESSION_TYPE", "x11"}, {"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}},
         DesktopProtocol::x11},
        {"X11 asked for",
         {{"QUILLO_DESKTOP_PROTOCOL", "x11"}, {"XDG_SESSION_TYPE", "wayland"}, {"WAYLAND_DISPLAY", "wayland-0"}},
         DesktopProtocol::x11},
        {"Wayland asked for", {{"QUILLO_DESKTOP_PROTOCOL", "wayland"}, {"DISPLAY", ":0"}}, DesktopProtocol::wayland},
        {"nonsense asked for", {{"QUILLO_DESKTOP_PROTOCOL", "beos"}, {"DISPLAY", ":0"}}, DesktopProtocol::x11},
    };
    for (const auto& test : cases)
        EXPECT_EQ(desktopProtocol(environment(test.variables)), test.expected) << test.name;
}

TEST(DesktopProtocolTest, WindowsGoThroughTheXServerUnlessTheUserChose) {
    EXPECT_EQ(windowPlatform(environment({{"WAYLAND_DISPLAY", "wayland-0"}, {"DISPLAY", ":0"}})), "xcb;wayland");
    EXPECT_EQ(windowPlatform(environment({{"WAYLAND_DISPLAY", "wayland-0"}})), QByteArray());
    EXPECT_EQ(windowPlatform(
                  environment({{"WAYLAND_DISPLAY", "wayland-0"}, {"DISPLAY", ":0"}, {"QT_QPA_PLATFORM", "wayland"}})),
              QByteArray());
}

} // namespace
} // namespace quillo
