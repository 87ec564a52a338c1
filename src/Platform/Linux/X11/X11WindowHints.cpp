#include "Platform/Linux/X11/X11WindowHints.h"

#include "Platform/Linux/X11/XcbConnection.h"

#include <QGuiApplication>

#include <xcb/shape.h>

#include <array>

namespace quillo {

namespace {

// The selections contain the number of the X screen. Today's desktops have only screen 0, with any number of monitors.
const QByteArray compositorSelection = "_NET_WM_CM_S0"; ///< Extended Window Manager Hints, "Compositing Managers"
const QByteArray traySelection = "_NET_SYSTEM_TRAY_S0"; ///< System Tray Protocol, "Locating the system tray"

/// Uses Qt's connection, so that a hint reaches the server before the window is mapped.
class X11WindowHints final : public WindowHints {
public:
    explicit X11WindowHints(xcb_connection_t* x) : m_x(x) {}

    [[nodiscard]] bool isComposited() const override { return isOwned(compositorSelection); }
    [[nodiscard]] bool hasSystemTray() const override { return isOwned(traySelection); }

    void skipTaskbar(quintptr window) override {
        const std::array<xcb_atom_t, 2> states{atom("_NET_WM_STATE_SKIP_TASKBAR"), atom("_NET_WM_STATE_SKIP_PAGER")};
        // When Qt maps the window, it keeps the property's content and adds its own states.
        xcb_change_property(m_x, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window), atom("_NET_WM_STATE"),
                            XCB_ATOM_ATOM, 32, states.size(), states.data());
    }

    void setInputRegion(quintptr window, const QRect& region) override {
        const xcb_rectangle_t area{static_cast<int16_t>(region.x()), static_cast<int16_t>(region.y()),
                                   static_cast<uint16_t>(region.width()), static_cast<uint16_t>(region.height())};
        xcb_shape_rectangles(m_x, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                             static_cast<xcb_window_t>(window), 0, 0, 1, &area);
        xcb_flush(m_x);
    }

private:
    [[nodiscard]] xcb_atom_t atom(const QByteArray& name) const {
        const auto reply = adopt(xcb_intern_atom_reply(
            m_x, xcb_intern_atom(m_x, 0, static_cast<uint16_t>(name.size()), name.constData()), nullptr));
        return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    }
    [[nodiscard]] bool isOwned(const QByteArray& selection) const {
        const auto owner =
            adopt(xcb_get_selection_owner_reply(m_x, xcb_get_selection_owner(m_x, atom(selection)), nullptr));
        return owner && owner->owner != XCB_NONE;
    }

    xcb_connection_t* m_x;
};

} // namespace

std::unique_ptr<WindowHints> createX11WindowHints() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    // Without a display the offscreen platform has the interface, but no connection.
    auto* const connection = x11 ? x11->connection() : nullptr;
    return connection ? std::make_unique<X11WindowHints>(connection) : nullptr;
}

} // namespace quillo
