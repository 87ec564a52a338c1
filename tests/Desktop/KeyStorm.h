#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

namespace quillo::test {

/// A client of the display that does to the keyboard what users, screen lockers and other programs do. Every call waits
/// until the server has handled it.
class KeyStorm {
public:
    /// Throws DesktopSessionError.
    explicit KeyStorm(const QString& display);
    ~KeyStorm();
    KeyStorm(const KeyStorm&) = delete;
    KeyStorm& operator=(const KeyStorm&) = delete;

    void press(uint8_t keycode);
    void release(uint8_t keycode);
    /// Lets the server and its clients take turns `count` times.
    void roundTrips(int count);
    void activateWindow(const QString& id);

    /// Takes the whole keyboard, as a screen locker does. False when another client has it.
    bool grabKeyboard();
    void ungrabKeyboard();
    /// Takes a key with any modifiers, as a hotkey program does. False when another client has it.
    bool grabKey(uint8_t keycode);

    /// From now on its keys come from the master keyboard of that id.
    void typeOn(uint16_t masterKeyboard);
    [[nodiscard]] std::vector<int> keysDown();

private:
    struct Connection;
    std::unique_ptr<Connection> m_connection;
};

} // namespace quillo::test
