#pragma once

#include "Platform/KeyEvents.h"

#include <set>

namespace quillo::test {

/// A keyboard whose keys a test presses. Flags and side bits follow from what is down.
class MockKeyEventSource final : public KeyEventSource {
public:
    bool trusted = true;
    bool canStart = true;
    std::vector<KeyCombination> consumed;
    std::vector<KeyCombination> unavailable;
    int starts = 0;
    int hiddenTaps = 0;
    std::chrono::milliseconds age{0}; ///< the age of events delivered from now on

    [[nodiscard]] bool isTrusted() const override { return trusted; }
    bool start(std::vector<KeyCombination> combinations, Handler onEvent, StateHandler onState) override {
        if (!canStart)
            return false;
        ++starts;
        consumed = std::move(combinations);
        m_onEvent = std::move(onEvent);
        m_onState = std::move(onState);
        return true;
    }
    void stop() override { m_onEvent = nullptr; }
    void setConsumed(std::vector<KeyCombination> combinations) override { consumed = std::move(combinations); }
    [[nodiscard]] std::vector<KeyCombination> unavailableCombinations() const override { return unavailable; }
    void hideLoneTap() override { ++hiddenTaps; }
    [[nodiscard]] std::vector<KeyCombination> freeAmong(std::vector<KeyCombination> candidates) const override {
        std::erase_if(candidates, [this](const auto& c) { return std::ranges::count(unavailable, c) > 0; });
        return candidates;
    }
    [[nodiscard]] bool isPhysicallyDown(uint16_t keyCode) const override { return m_down.contains(keyCode); }

    void press(uint16_t keyCode, bool isAutoRepeat = false) {
        m_down.insert(keyCode);
        send(keyCode, true, isAutoRepeat);
    }
    void release(uint16_t keyCode) {
        m_down.erase(keyCode);
        send(keyCode, false, false);
    }
    /// Releases the key without delivering an event.
    void loseRelease(uint16_t keyCode) { m_down.erase(keyCode); }
    void announce(KeyEventSourceState state) {
        if (const auto handler = m_onState)
            handler(state);
    }
    [[nodiscard]] const std::set<uint16_t>& down() const { return m_down; }

private:
    struct Modifier {
        uint16_t keyCode;
        uint64_t bits;
    };
    static constexpr Modifier modifiers[] = {
        {keycode::rightCommand, keyflag::command | keyflag::rightCommand},
        {keycode::leftCommand, keyflag::command | keyflag::leftCommand},
        {keycode::leftShift, keyflag::shift | keyflag::leftShift},
        {keycode::rightShift, keyflag::shift | keyflag::rightShift},
        {keycode::leftOption, keyflag::option | keyflag::leftOption},
        {keycode::rightOption, keyflag::option | keyflag::rightOption},
        {keycode::leftControl, keyflag::control | keyflag::leftControl},
        {keycode::rightControl, keyflag::control | keyflag::rightControl},
    };

    void send(uint16_t keyCode, bool isDown, bool isAutoRepeat) {
        KeyEvent event{.type = isDown ? KeyEventType::keyDown : KeyEventType::keyUp,
                       .keyCode = keyCode,
                       .flags = 0,
                       .isAutoRepeat = isAutoRepeat,
                       .age = age};
        for (const auto& [code, bits] : modifiers) {
            if (m_down.contains(code))
                event.flags |= bits;
            if (code == keyCode)
                event.type = KeyEventType::flagsChanged;
        }
        if (const auto handler = m_onEvent)
            handler(event);
    }

    Handler m_onEvent;
    StateHandler m_onState;
    std::set<uint16_t> m_down;
};

} // namespace quillo::test
