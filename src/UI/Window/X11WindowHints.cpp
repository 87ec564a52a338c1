#include "UI/Window/X11WindowHints.h"

#include <QGuiApplication>

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <cmath>
#include <cstdlib>
#include <memory>

namespace quillo::windowhints {

namespace {

struct Free {
    void operator()(void* reply) const { std::free(reply); } // NOLINT(cppcoreguidelines-no-malloc)
};
template <class T>
using Reply = std::unique_ptr<T, Free>;

xcb_connection_t* connection() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* x, const QByteArray& name) {
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(x, xcb_intern_atom(x, 0, static_cast<uint16_t>(name.size()), name.constData()), nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

bool isOwned(xcb_connection_t* x, const QByteArray& selection) {
    const Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(x, xcb_get_selection_owner(x, atom(x, selection)), nullptr));
    return owner && owner->owner != XCB_NONE;
}

} // namespace

// The selections below carry the number of the X screen. Every desktop in use has one, number 0, whatever the count of
// monitors.

bool isComposited() {
    auto* x = connection();
    // Extended Window Manager Hints, "Compositing Managers".
    return x ? isOwned(x, "_NET_WM_CM_S0") : QGuiApplication::platformName() != u"xcb";
}

bool hasSystemTray() {
    auto* x = connection();
    // System Tray Protocol, "Locating the system tray".
    return x && isOwned(x, "_NET_SYSTEM_TRAY_S0");
}

void skipTaskbar(QWindow& window) {
    auto* x = connection();
    if (!x)
        return;
    const std::array<xcb_atom_t, 2> states{atom(x, "_NET_WM_STATE_SKIP_TASKBAR"), atom(x, "_NET_WM_STATE_SKIP_PAGER")};
    // Qt keeps what it finds in the property when it maps the window and adds its own states.
    xcb_change_property(x, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window.winId()), atom(x, "_NET_WM_STATE"),
                        XCB_ATOM_ATOM, 32, states.size(), states.data());
}

void setInputRegion(QWindow& window, const QRect& region) {
    auto* x = connection();
    if (!x)
        return;
    const auto scale = window.devicePixelRatio();
    const auto device = [scale](int value) { return std::lround(value * scale); };
    const xcb_rectangle_t area{static_cast<int16_t>(device(region.x())), static_cast<int16_t>(device(region.y())),
                               static_cast<uint16_t>(device(region.width())),
                               static_cast<uint16_t>(device(region.height()))};
    xcb_shape_rectangles(x, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                         static_cast<xcb_window_t>(window.winId()), 0, 0, 1, &area);
    xcb_flush(x);
}

} // namespace quillo::windowhints
