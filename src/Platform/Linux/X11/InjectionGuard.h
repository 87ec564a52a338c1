#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>

namespace quillo {

/// Shared by the injector and the key event source, so that our synthetic keys are never mistaken for the user's. Any
/// thread.
///
/// Synthetic keys come back as events of the XTEST device, but so do the keys of remote desktops; ignoring the device
/// would disable the hotkeys there. Instead the injector announces every event before sending it, and the source
/// removes the announcement when the event arrives. Key codes here are those of X11.
class InjectionGuard {
public:
    /// The injector is about to send this event.
    void expect(uint8_t keycode, bool press);
    /// Whether an event from the XTEST device was announced; removes the announcement.
    bool consume(uint8_t keycode, bool press);

    /// The keys that the user holds, according to the source; known while a source runs.
    void setPhysicallyDown(uint8_t keycode, bool down);
    [[nodiscard]] bool isPhysicallyDown(uint8_t keycode) const { return m_down[keycode]; }
    void setSourceRunning(bool running) { m_sourceRunning = running; }
    [[nodiscard]] bool isSourceRunning() const { return m_sourceRunning; }

    /// Whether the user holds a key that the server considers up because the injector released it.
    void setLifted(uint8_t keycode, bool lifted) { m_lifted[keycode] = lifted; }
    [[nodiscard]] bool isLifted(uint8_t keycode) const { return m_lifted[keycode]; }

    /// A key that the injector has pressed again for the user who still holds it: its own device keeps a copy that the
    /// release on the user's keyboard does not end.
    void setPressedAgain(uint8_t keycode) { m_pressedAgain[keycode] = true; }
    /// Whether there is such a copy; the caller releases it.
    [[nodiscard]] bool takePressedAgain(uint8_t keycode) { return m_pressedAgain[keycode].exchange(false); }

    /// Whether a consumed combination is being held, so that we have grabbed the keyboard.
    void setOwnGrabActive(bool active) { m_ownGrabActive = active; }
    [[nodiscard]] bool isOwnGrabActive() const { return m_ownGrabActive; }

private:
    struct Expected {
        uint8_t keycode;
        bool press;
        std::chrono::steady_clock::time_point announced;
    };
    std::mutex m_mutex;
    std::deque<Expected> m_expected;
    std::array<std::atomic<bool>, 256> m_down{};
    std::array<std::atomic<bool>, 256> m_lifted{};
    std::array<std::atomic<bool>, 256> m_pressedAgain{};
    std::atomic<bool> m_sourceRunning = false;
    std::atomic<bool> m_ownGrabActive = false;
};

} // namespace quillo
