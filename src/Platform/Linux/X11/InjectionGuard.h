#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>

namespace quillo {

/// What the injector and the key event source tell each other, so that our own synthetic keys are never taken for the
/// user's. Any thread.
///
/// Synthetic keys come back as events of the XTEST device, but so do the keys of remote desktops; a rule by device
/// would deafen the application there. Instead the injector announces every event before it sends it, and the source
/// strikes it off when it arrives. Key codes here are those of X11.
class InjectionGuard {
public:
    /// The injector is about to send this event.
    void expect(uint8_t keycode, bool press);
    /// Whether an event that has arrived from the XTEST device was announced; strikes it off.
    bool consume(uint8_t keycode, bool press);

    /// What the user holds, as the source sees it; known while a source runs.
    void setPhysicallyDown(uint8_t keycode, bool down);
    [[nodiscard]] bool isPhysicallyDown(uint8_t keycode) const { return m_down[keycode]; }
    void setSourceRunning(bool running) { m_sourceRunning = running; }
    [[nodiscard]] bool isSourceRunning() const { return m_sourceRunning; }

    /// A key the user holds that the server believes released, because the injector lifted it.
    void setLifted(uint8_t keycode, bool lifted) { m_lifted[keycode] = lifted; }
    [[nodiscard]] bool isLifted(uint8_t keycode) const { return m_lifted[keycode]; }

    /// A combination we consume is being held: the keyboard is grabbed, by ourselves.
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
    std::atomic<bool> m_sourceRunning = false;
    std::atomic<bool> m_ownGrabActive = false;
};

} // namespace quillo
