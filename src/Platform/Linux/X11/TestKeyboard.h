#pragma once

#include "Platform/Linux/X11/InjectionGuard.h"
#include "Platform/Linux/X11/KeyboardLayout.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <vector>

namespace quillo {

/// Sends synthetic keys through the XTEST extension and announces them to the guard.
class TestKeyboard {
public:
    TestKeyboard(XcbConnection& connection, InjectionGuard& guard) : m_connection(connection), m_guard(guard) {}
    TestKeyboard(const TestKeyboard&) = delete;
    TestKeyboard& operator=(const TestKeyboard&) = delete;

    void press(xcb_keycode_t keycode);
    void release(xcb_keycode_t keycode) { send(XCB_KEY_RELEASE, keycode); }
    void tap(xcb_keycode_t keycode) {
        press(keycode);
        release(keycode);
    }

    /// The keys that are down, according to the server.
    [[nodiscard]] std::vector<xcb_keycode_t> heldKeys() const;
    /// Releases `keys`; the server then considers them up although the user may still hold them.
    void lift(const std::vector<xcb_keycode_t>& keys);
    /// Releases the modifier keys that the user has pressed since, as far as the key event source knows them.
    void liftNewModifiers(const KeyboardLayout& layout);
    /// Presses the released modifiers again that the user still holds. Other keys stay up, because they would type. If
    /// no source runs, all keys stay up, because we do not know which are held.
    void pressLiftedModifiers(const KeyboardLayout& layout);

private:
    void send(uint8_t type, xcb_keycode_t keycode);
    void lift(xcb_keycode_t keycode);
    XcbConnection& m_connection;
    InjectionGuard& m_guard;
    std::vector<xcb_keycode_t> m_lifted;
};

} // namespace quillo
