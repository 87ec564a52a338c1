#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

namespace quillo {

/// Virtual key codes and modifier bits; adapters translate the platform's to them. Fixed: see docs/compatibility.md.
enum class KeyEventType { keyDown, keyUp, flagsChanged };

/// One event of the keyboard, seen wherever the focus is.
struct KeyEvent {
    KeyEventType type = KeyEventType::keyDown;
    uint16_t keyCode = 0; ///< virtual key code (see `keycode`)
    uint64_t flags = 0;   ///< modifier bits and the device-dependent side bits after the event
    bool isAutoRepeat = false;
    /// How long before its delivery the event happened; a busy main thread receives it late.
    std::chrono::milliseconds age{0};

    /// Compares what happened to the key, not when.
    bool operator==(const KeyEvent& other) const {
        return type == other.type && keyCode == other.keyCode && flags == other.flags &&
               isAutoRepeat == other.isAutoRepeat;
    }
};

namespace keyflag {
inline constexpr uint64_t shift = 0x20000;
inline constexpr uint64_t control = 0x40000;
inline constexpr uint64_t option = 0x80000;   ///< Alt
inline constexpr uint64_t command = 0x100000; ///< Super
inline constexpr uint64_t mask = 0x1E0000;
// Set while that very key is down.
inline constexpr uint64_t leftControl = 0x01;
inline constexpr uint64_t leftShift = 0x02;
inline constexpr uint64_t rightShift = 0x04;
inline constexpr uint64_t leftCommand = 0x08;
inline constexpr uint64_t rightCommand = 0x10;
inline constexpr uint64_t leftOption = 0x20;
inline constexpr uint64_t rightOption = 0x40;
inline constexpr uint64_t rightControl = 0x2000;
inline constexpr uint64_t function = 0x800000;
} // namespace keyflag

namespace keycode {
inline constexpr uint16_t rightCommand = 54;
inline constexpr uint16_t leftCommand = 55;
inline constexpr uint16_t leftShift = 56;
inline constexpr uint16_t leftOption = 58;
inline constexpr uint16_t leftControl = 59;
inline constexpr uint16_t rightShift = 60;
inline constexpr uint16_t rightOption = 61;
inline constexpr uint16_t rightControl = 62;
inline constexpr uint16_t function = 63;
inline constexpr uint16_t returnKey = 36;
inline constexpr uint16_t tab = 48;
inline constexpr uint16_t space = 49;
inline constexpr uint16_t deleteKey = 51;
inline constexpr uint16_t escape = 53;
} // namespace keycode

/// A key combination to be consumed, so that the focused application does not get it.
struct KeyCombination {
    uint16_t keyCode = 0;
    uint64_t modifiers = 0; ///< of `keyflag::mask`
    bool operator==(const KeyCombination&) const = default;
};

/// Why the source cannot deliver, or what changed about it.
enum class KeyEventSourceState {
    running,
    notAvailable,    ///< the desktop offers no such thing (no X server, no permission)
    lost,            ///< the connection broke; the source has stopped
    keyboardChanged, ///< a keyboard came or went: keys that were down may never be released
};

/// Delivers every key event of the session. It reports facts only; the hotkey service decides what they mean.
class KeyEventSource {
public:
    using Handler = std::function<void(const KeyEvent&)>;
    using StateHandler = std::function<void(KeyEventSourceState)>;

    virtual ~KeyEventSource() = default;

    /// Whether this desktop lets us observe keys.
    [[nodiscard]] virtual bool isTrusted() const = 0;
    /// Starts delivering on the main thread and consumes the given combinations: the focused application does not get
    /// them, but their events still arrive here. False on failure; `unavailableCombinations` reports combinations that
    /// another program holds. Auto-repeat arrives as key-downs marked as repeats, never as a release.
    virtual bool start(std::vector<KeyCombination> consumed, Handler onEvent, StateHandler onState) = 0;
    virtual void stop() = 0;
    /// Replaces the consumed combinations while the source runs. A source that cannot do so keeps the old ones.
    virtual void setConsumed(std::vector<KeyCombination> consumed) { static_cast<void>(consumed); }
    [[nodiscard]] virtual std::vector<KeyCombination> unavailableCombinations() const = 0;
    /// Taps a key without meaning, unseen by the handler. A desktop that opens a menu when Super or Alt is pressed and
    /// released with no other key in between then does not open it. A source that cannot send keys does nothing.
    virtual void hideLoneTap() {}
    /// Which of `candidates` no other program holds, in their order. A source that cannot tell returns none.
    [[nodiscard]] virtual std::vector<KeyCombination> freeAmong(std::vector<KeyCombination> candidates) const {
        candidates.clear();
        return candidates;
    }
    /// Queries the device-dependent and modifier bits of the keys that are physically down now, for recovery after a
    /// lost event.
    [[nodiscard]] virtual bool isPhysicallyDown(uint16_t keyCode) const = 0;
};

} // namespace quillo
