#pragma once

#include "Support/PhysicalKeyboard.h"

namespace quillo::test {

/// A client of the display that does to the keyboard what users, screen lockers and other programs do. Every call waits
/// until the server has handled it.
class KeyStorm final : public PhysicalKeyboard {
public:
    using PhysicalKeyboard::PhysicalKeyboard;

    void press(uint8_t keycode) { send(keycode, true); }
    void release(uint8_t keycode) { send(keycode, false); }
    /// Lets the server and its clients take turns `count` times.
    void roundTrips(int count);
    void activateWindow(const QString& id);

    void ungrabKeyboard();
    /// Takes a key with any modifiers, as a hotkey program does. False when another client has it.
    bool grabKey(uint8_t keycode);

    /// From now on its keys come from the master keyboard of that id.
    void typeOn(uint16_t masterKeyboard);

private:
    void send(uint8_t keycode, bool press);
};

} // namespace quillo::test
