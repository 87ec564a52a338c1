#pragma once

#include "Concurrency/Clock.h"
#include "Platform/KeyEvents.h"

#include <functional>
#include <optional>
#include <vector>

namespace quillo {

/// The two hotkeys.
enum class Hotkey { hold, toggle };

/// A hotkey whose combination another program holds, so that the service does not react to it.
struct HotkeyConflict {
    Hotkey hotkey = Hotkey::toggle;
    KeyCombination taken;
    std::optional<KeyCombination> free; ///< what the user could take instead
    bool operator==(const HotkeyConflict&) const = default;
};

/// Turns the two configured hotkeys into three callbacks. Main thread; the callbacks run there too, posted.
class HotkeyServiceProtocol {
public:
    virtual ~HotkeyServiceProtocol() = default;

    [[nodiscard]] virtual bool isRunning() const = 0;
    virtual void start() = 0;
    virtual void stop() = 0;
    /// Reports whether a recording runs, however it was started. Called on every change of the store's status.
    virtual void setRecordingActive(bool active) = 0;
    /// The session was locked, switched or put to sleep: a key that is down no longer counts as pressed, because its
    /// release may never come. Ends no recording.
    virtual void forgetPressedKeys() {}

    [[nodiscard]] virtual std::vector<HotkeyConflict> conflicts() const { return {}; }
    /// Whether no other program holds the combination.
    [[nodiscard]] virtual bool isFree(const KeyCombination& combination) const {
        static_cast<void>(combination);
        return true;
    }
    /// Gives the next key or lone modifier key that the user presses to `onKey`; no hotkey acts until then. An empty
    /// function ends that.
    virtual void captureKey(std::function<void(const KeyCombination&)> onKey) { static_cast<void>(onKey); }

    std::function<void(Clock::Instant pressedAt)> onHotkeyDown; ///< start recording; the press may be heard of late
    std::function<void()> onHotkeyUp;                           ///< stop recording
    std::function<void(bool)> onHandsOffModeChanged;            ///< whether recording continues without the key held
    std::function<void()> onCancel;                             ///< Escape during a recording, when the setting says so
    std::function<void()> onConfigurationChanged;               ///< the hotkeys were changed; the service restarts now
    std::function<void()> onKeysReturned;     ///< the service runs again after the desktop had withdrawn the keys
    std::function<void()> onConflictsChanged; ///< what `conflicts` returns may have changed
};

} // namespace quillo
