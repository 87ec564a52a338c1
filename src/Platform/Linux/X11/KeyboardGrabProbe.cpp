#include "Platform/Linux/X11/KeyboardGrabProbe.h"

#include "Platform/Linux/X11/XcbConnection.h"

namespace quillo {

bool x11KeyboardIsGrabbed(const InjectionGuard& guard) {
    if (guard.isOwnGrabActive())
        return false;
    const auto connection = XcbConnection::open(QStringLiteral("the keyboard grab probe"));
    if (!connection)
        return false;
    const xcb_window_t window = xcb_generate_id(connection->get());
    xcb_create_window(connection->get(), 0, window, connection->root(), -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    const auto cookie =
        xcb_grab_keyboard(connection->get(), 1, window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const auto reply = adopt(xcb_grab_keyboard_reply(connection->get(), cookie, nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

} // namespace quillo
