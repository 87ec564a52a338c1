#include "KeyStorm.h"

#include "DesktopSession.h"

#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include <cstdlib>

namespace quillo::test {

struct KeyStorm::Connection {
    xcb_connection_t* handle = nullptr;
    xcb_window_t root = XCB_WINDOW_NONE;
};

KeyStorm::KeyStorm(const QString& display) : m_connection(std::make_unique<Connection>()) {
    m_connection->handle = xcb_connect(display.toLatin1().constData(), nullptr);
    if (xcb_connection_has_error(m_connection->handle) != 0)
        throw DesktopSessionError(QStringLiteral("the display does not accept another client"));
    m_connection->root = xcb_setup_roots_iterator(xcb_get_setup(m_connection->handle)).data->root;
    // The extension answers to clients that have said which version they speak.
    std::free(xcb_input_xi_query_version_reply(m_connection->handle,
                                               xcb_input_xi_query_version(m_connection->handle, 2, 2), nullptr));
}

KeyStorm::~KeyStorm() { xcb_disconnect(m_connection->handle); }

void KeyStorm::press(uint8_t keycode) {
    xcb_test_fake_input(m_connection->handle, XCB_KEY_PRESS, keycode, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    roundTrips(1);
}

void KeyStorm::release(uint8_t keycode) {
    xcb_test_fake_input(m_connection->handle, XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    roundTrips(1);
}

void KeyStorm::roundTrips(int count) {
    auto* const handle = m_connection->handle;
    for (int i = 0; i < count; ++i)
        std::free(xcb_get_input_focus_reply(handle, xcb_get_input_focus(handle), nullptr));
    while (auto* const event = xcb_poll_for_event(handle))
        std::free(event);
}

void KeyStorm::activateWindow(const QString& id) {
    auto* const handle = m_connection->handle;
    const auto* name = "_NET_ACTIVE_WINDOW";
    auto* const atom = xcb_intern_atom_reply(
        handle, xcb_intern_atom(handle, 0, static_cast<uint16_t>(std::char_traits<char>::length(name)), name), nullptr);
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = id.toUInt();
    message.type = atom->atom;
    message.data.data32[0] = 2; // a pager's request is not taken for an intrusion
    std::free(atom);
    xcb_send_event(handle, 0, m_connection->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    roundTrips(1);
}

bool KeyStorm::grabKeyboard() {
    auto* const handle = m_connection->handle;
    auto* const reply = xcb_grab_keyboard_reply(
        handle,
        xcb_grab_keyboard(handle, 0, m_connection->root, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr);
    const bool grabbed = reply != nullptr && reply->status == XCB_GRAB_STATUS_SUCCESS;
    std::free(reply);
    return grabbed;
}

void KeyStorm::ungrabKeyboard() {
    xcb_ungrab_keyboard(m_connection->handle, XCB_CURRENT_TIME);
    roundTrips(1);
}

bool KeyStorm::grabKey(uint8_t keycode) {
    auto* const handle = m_connection->handle;
    auto* const error =
        xcb_request_check(handle, xcb_grab_key_checked(handle, 0, m_connection->root, XCB_MOD_MASK_ANY, keycode,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    std::free(error);
    return error == nullptr;
}

void KeyStorm::typeOn(uint16_t masterKeyboard) {
    // The client's pointer decides on which pair of masters its fake input happens.
    xcb_input_xi_set_client_pointer(m_connection->handle, XCB_WINDOW_NONE, masterKeyboard);
    roundTrips(1);
}

std::vector<int> KeyStorm::keysDown() {
    auto* const handle = m_connection->handle;
    auto* const reply = xcb_query_keymap_reply(handle, xcb_query_keymap(handle), nullptr);
    std::vector<int> down;
    for (int keycode = 0; reply != nullptr && keycode < 256; ++keycode) {
        if ((reply->keys[keycode / 8] >> (keycode % 8) & 1) != 0)
            down.push_back(keycode);
    }
    std::free(reply);
    return down;
}

} // namespace quillo::test
