#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <QPoint>
#include <QRect>
#include <QString>

#include <set>

namespace quillo::test {

/// Another application on the display: a plain window with the keyboard focus, and a hand on the mouse. Speaks to the X
/// server over a connection of its own.
class DesktopClient {
public:
    DesktopClient();

    [[nodiscard]] xcb_window_t window() const { return m_window; }
    /// `_NET_ACTIVE_WINDOW` of the window manager.
    [[nodiscard]] xcb_window_t activeWindow() const {
        return m_connection->item(m_connection->root(), m_connection->atom("_NET_ACTIVE_WINDOW"));
    }
    [[nodiscard]] xcb_window_t inputFocus() const;
    /// The names in `_NET_WM_STATE` of `window`.
    [[nodiscard]] std::set<QString> states(xcb_window_t window) const;

    /// Where a window of anybody's is, in the display's own pixels.
    [[nodiscard]] QRect geometry(xcb_window_t window) const;

    void movePointer(QPoint place);
    void button(bool pressed);

private:
    std::unique_ptr<XcbConnection> m_connection;
    xcb_window_t m_window;
};

} // namespace quillo::test
