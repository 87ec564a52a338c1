#pragma once

#include "Core/UserMessage.h"
#include "Services/Hotkeys/HotkeyConfig.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

namespace quillo {

/// The choice of a combination for a hotkey by the user.
namespace hotkeyChoice {

enum class Problem {
    none,
    neededForTyping, ///< nobody could type the key any more
    loneModifier,    ///< the toggle hotkey is no modifier key alone
    otherHotkey,     ///< it is the combination of the other hotkey
};

[[nodiscard]] Problem problemOf(Hotkey hotkey, const KeyCombination& combination, const HotkeyConfig& config);
/// What tells the user of the problem, in the catalogues, with the combination's name as its argument; empty for none.
[[nodiscard]] QString keyOf(Problem problem);
/// Combinations to offer when another program holds the configured one, the best first.
[[nodiscard]] std::vector<KeyCombination> alternatives(Hotkey hotkey);
/// What to tell the user about a hotkey that another program holds.
[[nodiscard]] UserMessage messageOf(const HotkeyConflict& conflict);
/// Stores the combination in the settings.
void store(Hotkey hotkey, const KeyCombination& combination, UserSettings& settings);

} // namespace hotkeyChoice

} // namespace quillo
