#pragma once

#include <QPoint>
#include <QRect>
#include <QString>

#include <memory>
#include <set>
#include <xcb/xcb.h>

namespace quillo::test {

/// Another application on the display: a plain window with the keyboard focus, and a hand on the mouse. Speaks to the X
/// server over a connection of its own.
class DesktopClient {
public:
    DesktopClient();
    ~DesktopClient();
    DesktopClient(const DesktopClient&) = delete;
    DesktopClient& operator=(const DesktopClient&) = delete;

    [[nodiscard]] xcb_window_t window() const { return m_window; }
    /// `_NET_ACTIVE_WINDOW` of the window manager.
    [[nodiscard]] xcb_window_t activeWindow() const;
    [[nodiscard]] xcb_window_t inputFocus() const;
    /// The names in `_NET_WM_STATE` of `window`.
    [[nodiscard]] std::set<QString> states(xcb_window_t window) const;

    /// Where a window of anybody's is, in the display's own pixels.
    [[nodiscard]] QRect geometry(xcb_window_t window) const;

    void movePointer(QPoint place);
    void button(bool pressed);

private:
    [[nodiscard]] xcb_atom_t atom(const char* name) const;
    [[nodiscard]] std::vector<uint32_t> property(xcb_window_t window, const char* name) const;

    xcb_connection_t* m_connection;
    xcb_window_t m_root;
    xcb_window_t m_window;
};

} // namespace quillo::test
