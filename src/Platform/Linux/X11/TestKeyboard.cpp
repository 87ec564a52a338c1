#include "Platform/Linux/X11/TestKeyboard.h"

#include <utility>

#include <xcb/xtest.h>

namespace quillo {

void TestKeyboard::send(uint8_t type, xcb_keycode_t keycode) {
    m_guard.expect(keycode, type == XCB_KEY_PRESS);
    xcb_test_fake_input(m_connection.get(), type, keycode, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
}

void TestKeyboard::press(xcb_keycode_t keycode) {
    // The server swallows the press of a key that this device still has down from an injection before.
    if (m_guard.takePressedAgain(keycode))
        release(keycode);
    send(XCB_KEY_PRESS, keycode);
}

void TestKeyboard::lift(xcb_keycode_t keycode) {
    // Record it before sending the event, so that a check in between does not consider the key released.
    m_guard.setLifted(keycode, true);
    (void)m_guard.takePressedAgain(keycode);
    release(keycode);
    m_lifted.push_back(keycode);
}

std::vector<xcb_keycode_t> TestKeyboard::heldKeys() const {
    std::vector<xcb_keycode_t> held;
    const auto keymap =
        adopt(xcb_query_keymap_reply(m_connection.get(), xcb_query_keymap(m_connection.get()), nullptr));
    for (unsigned keycode = 8; keymap && keycode < 256; ++keycode) {
        if ((keymap->keys[keycode / 8] >> (keycode % 8) & 1) != 0)
            held.push_back(static_cast<xcb_keycode_t>(keycode));
    }
    return held;
}

void TestKeyboard::lift(const std::vector<xcb_keycode_t>& keys) {
    for (const xcb_keycode_t key : keys)
        lift(key);
}

void TestKeyboard::liftNewModifiers(const KeyboardLayout& layout) {
    if (!m_guard.isSourceRunning())
        return;
    for (unsigned keycode = 8; keycode < 256; ++keycode) {
        const auto key = static_cast<xcb_keycode_t>(keycode);
        if (m_guard.isPhysicallyDown(key) && !m_guard.isLifted(key) && layout.isModifierKey(key))
            lift(key);
    }
}

void TestKeyboard::pressLiftedModifiers(const KeyboardLayout& layout) {
    for (const xcb_keycode_t keycode : std::exchange(m_lifted, {})) {
        if (m_guard.isSourceRunning() && layout.isModifierKey(keycode) && m_guard.isPhysicallyDown(keycode) &&
            m_guard.isLifted(keycode)) {
            send(XCB_KEY_PRESS, keycode);
            // The source ends the copy over its own connection: it may know of it only when the press has arrived.
            m_connection.roundTrip();
            m_guard.setPressedAgain(keycode);
            // Released before that: the source did not know of the copy and does not end it.
            if (!m_guard.isPhysicallyDown(keycode) && m_guard.takePressedAgain(keycode))
                release(keycode);
        }
        m_guard.setLifted(keycode, false);
    }
    m_connection.flush();
}

} // namespace quillo
