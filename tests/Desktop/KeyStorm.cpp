#include "KeyStorm.h"

#include <xcb/xinput.h>

#include <cstdlib>

namespace quillo::test {

void KeyStorm::send(uint8_t keycode, bool press) {
    programKey(keycode, press);
    roundTrips(1);
}

void KeyStorm::roundTrips(int count) {
    for (int i = 0; i < count; ++i)
        std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    while (auto* const event = xcb_poll_for_event(m_connection))
        std::free(event);
}

void KeyStorm::activateWindow(const QString& id) {
    const auto* name = "_NET_ACTIVE_WINDOW";
    auto* const atom = xcb_intern_atom_reply(
        m_connection,
        xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::char_traits<char>::length(name)), name), nullptr);
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = id.toUInt();
    message.type = atom->atom;
    message.data.data32[0] = 2; // a pager's request is not taken for an intrusion
    std::free(atom);
    xcb_send_event(m_connection, 0, m_root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    roundTrips(1);
}

void KeyStorm::ungrabKeyboard() {
    xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
    roundTrips(1);
}

bool KeyStorm::grabKey(uint8_t keycode) {
    auto* const error =
        xcb_request_check(m_connection, xcb_grab_key_checked(m_connection, 0, m_root, XCB_MOD_MASK_ANY, keycode,
                                                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    std::free(error);
    return error == nullptr;
}

void KeyStorm::typeOn(uint16_t masterKeyboard) {
    // The client's pointer decides on which pair of masters its fake input happens.
    xcb_input_xi_set_client_pointer(m_connection, XCB_WINDOW_NONE, masterKeyboard);
    roundTrips(1);
}

} // namespace quillo::test
