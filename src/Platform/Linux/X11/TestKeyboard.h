#pragma once

#include "Platform/Linux/X11/InjectionGuard.h"
#include "Platform/Linux/X11/KeyboardLayout.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <vector>

namespace quillo {

/// Synthetic keys through the XTEST extension, announced to the guard.
class TestKeyboard {
public:
    TestKeyboard(XcbConnection& connection, InjectionGuard& guard) : m_connection(connection), m_guard(guard) {}
    TestKeyboard(const TestKeyboard&) = delete;
    TestKeyboard& operator=(const TestKeyboard&) = delete;

    void press(xcb_keycode_t keycode) { send(XCB_KEY_PRESS, keycode); }
    void release(xcb_keycode_t keycode) { send(XCB_KEY_RELEASE, keycode); }
    void tap(xcb_keycode_t keycode) {
        press(keycode);
        release(keycode);
    }

    /// The keys that are down, as the server has it.
    [[nodiscard]] std::vector<xcb_keycode_t> heldKeys() const;
    /// Releases `keys`; the server then believes them up though the user may still hold them.
    void lift(const std::vector<xcb_keycode_t>& keys);
    /// Lifts the modifier keys that the user has pressed meanwhile, as far as the key event source tells.
    void liftNewModifiers(const KeyboardLayout& layout);
    /// Presses the lifted modifiers again that the user still holds. Other keys stay up, or they would type; and so do
    /// all when no source runs to tell what is held.
    void pressLiftedModifiers(const KeyboardLayout& layout);

private:
    void send(uint8_t type, xcb_keycode_t keycode);
    void lift(xcb_keycode_t keycode);
    XcbConnection& m_connection;
    InjectionGuard& m_guard;
    std::vector<xcb_keycode_t> m_lifted;
};

} // namespace quillo
