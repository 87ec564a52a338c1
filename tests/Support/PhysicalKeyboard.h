#pragma once

#include <QString>

#include <cstdint>
#include <vector>

#include <xcb/xcb.h>

namespace quillo::test {

/// The keyboard of an Xvfb server, as a device of its own beside the one that programs send keys through: what its user
/// holds and what a program presses are different keys, as on a real desktop.
class PhysicalKeyboard {
public:
    /// `display` as in DISPLAY. Throws std::runtime_error.
    explicit PhysicalKeyboard(const QString& display);
    ~PhysicalKeyboard();
    PhysicalKeyboard(const PhysicalKeyboard&) = delete;
    PhysicalKeyboard& operator=(const PhysicalKeyboard&) = delete;

    /// Presses or releases a key by its X key code; returns once the server has processed it.
    void key(int keycode, bool press);
    /// Presses or releases a key of the device that programs send keys through, without waiting.
    void programKey(int keycode, bool press) const;
    /// Takes the whole keyboard, as a screen locker does. False when another client has it.
    [[nodiscard]] bool grabKeyboard() const;
    /// The key codes that are down on any device.
    [[nodiscard]] std::vector<int> keysDown() const;

protected:
    xcb_connection_t* m_connection;
    xcb_window_t m_root;

private:
    uint8_t m_device = 0;
    uint8_t m_firstEvent = 0;
};

} // namespace quillo::test
