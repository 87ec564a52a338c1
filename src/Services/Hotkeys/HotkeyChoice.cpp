#include "Services/Hotkeys/HotkeyChoice.h"

#include "Services/Settings/KeyCodeLabels.h"
#include "Services/Settings/KeyNames.h"

#include <algorithm>

namespace quillo::hotkeyChoice {

namespace {

constexpr uint16_t f7 = 98;
constexpr uint16_t f8 = 100;
constexpr uint16_t f9 = 101;
constexpr uint16_t pauseKey = 113;

/// The keys that no text and no moving of the cursor needs: function keys, Menu and Insert.
bool isFreeWithoutModifiers(uint16_t keyCode) {
    static constexpr uint16_t free[] = {122, 120, 99,  118, 96,  97, 98, 100, 101, 109, 103,
                                        111, 105, 107, 113, 106, 64, 79, 80,  90,  110, 114};
    return std::ranges::find(free, keyCode) != std::end(free);
}

} // namespace

Problem problemOf(Hotkey hotkey, const KeyCombination& combination, const HotkeyConfig& config) {
    const bool isModifier = modifierKeyBit(combination.keyCode) != 0;
    if (isModifier && hotkey == Hotkey::toggle)
        return Problem::loneModifier;
    // With Shift alone a key types too.
    if (!isModifier && (combination.modifiers & ~keyflag::shift) == 0 && !isFreeWithoutModifiers(combination.keyCode))
        return Problem::neededForTyping;
    const auto other = hotkey == Hotkey::hold ? KeyCombination{config.toggleKeyCode, config.toggleModifiers}
                                              : KeyCombination{config.keyCode, config.modifiers};
    return combination == other ? Problem::otherHotkey : Problem::none;
}

QString keyOf(Problem problem) {
    switch (problem) {
    case Problem::neededForTyping:
        return QStringLiteral("hotkey.problem.typing");
    case Problem::loneModifier:
        return QStringLiteral("hotkey.problem.loneModifier");
    case Problem::otherHotkey:
        return QStringLiteral("hotkey.problem.other");
    case Problem::none:
        break;
    }
    return {};
}

std::vector<KeyCombination> alternatives(Hotkey hotkey) {
    if (hotkey == Hotkey::hold)
        return {{f9, 0}, {f8, 0}, {f7, 0}, {pauseKey, 0}};
    return {{keycode::space, keyflag::control | keyflag::option},
            {keycode::space, keyflag::control | keyflag::command},
            {keycode::space, keyflag::option | keyflag::shift},
            {f9, keyflag::control},
            {pauseKey, 0}};
}

UserMessage messageOf(const HotkeyConflict& conflict) {
    if (!conflict.free)
        return {QStringLiteral("hotkey.unavailable"), {keyNames::of(conflict.taken)}};
    return {QStringLiteral("hotkey.unavailableUse"), {keyNames::of(conflict.taken), keyNames::of(*conflict.free)}};
}

void store(Hotkey hotkey, const KeyCombination& combination, UserSettings& settings) {
    const bool isHold = hotkey == Hotkey::hold;
    settings.setValue(isHold ? QStringLiteral("hotkeyKeyCode") : QStringLiteral("toggleHotkeyKeyCode"),
                      combination.keyCode);
    settings.setValue(isHold ? QStringLiteral("hotkeyModifiers") : QStringLiteral("toggleHotkeyModifiers"),
                      static_cast<qulonglong>(combination.modifiers));
}

} // namespace quillo::hotkeyChoice
