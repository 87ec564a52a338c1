#pragma once

#include "Platform/KeyEvents.h"
#include "Services/Settings/UserSettings.h"

#include <QString>

#include <vector>

namespace quillo {

/// The two hotkeys as configured.
struct HotkeyConfig {
    uint16_t keyCode = keycode::rightCommand; ///< of the hold hotkey
    uint64_t modifiers = 0;
    uint16_t toggleKeyCode = keycode::space;
    uint64_t toggleModifiers = keyflag::option;

    static HotkeyConfig fromSettings(const UserSettings& settings);

    /// The hold hotkey is one of the modifier keys on its own.
    [[nodiscard]] bool isModifierKey() const;
    [[nodiscard]] QString displayString() const;
    [[nodiscard]] QString toggleDisplayString() const;
    /// The combinations to withhold from the focused application. A modifier key is never among them: grabbing it would
    /// also take all other keys while it is held.
    [[nodiscard]] std::vector<KeyCombination> consumedCombinations(bool withEscape) const;

    bool operator==(const HotkeyConfig&) const = default;
};

} // namespace quillo
