#include "Services/Hotkeys/HotkeyConfig.h"

#include "Services/Settings/KeyCodeLabels.h"

namespace quillo {

HotkeyConfig HotkeyConfig::fromSettings(const UserSettings& settings) {
    const auto code = [&](const char* key) {
        return static_cast<uint16_t>(settings.value(QString::fromLatin1(key)).toUInt());
    };
    const auto mask = [&](const char* key) {
        return settings.value(QString::fromLatin1(key)).toULongLong() & keyflag::mask;
    };
    return {.keyCode = code("hotkeyKeyCode"),
            .modifiers = mask("hotkeyModifiers"),
            .toggleKeyCode = code("toggleHotkeyKeyCode"),
            .toggleModifiers = mask("toggleHotkeyModifiers")};
}

bool HotkeyConfig::isModifierKey() const { return modifierKeyBit(keyCode) != 0; }

QString HotkeyConfig::displayString() const { return keyCombinationToString(keyCode, modifiers); }

QString HotkeyConfig::toggleDisplayString() const { return keyCombinationToString(toggleKeyCode, toggleModifiers); }

std::vector<KeyCombination> HotkeyConfig::consumedCombinations(bool withEscape) const {
    std::vector<KeyCombination> combinations{{toggleKeyCode, toggleModifiers}};
    if (!isModifierKey())
        combinations.push_back({keyCode, modifiers});
    else if (const uint64_t own = modifierMaskOfKey(keyCode); own && !(toggleModifiers & own))
        combinations.push_back({toggleKeyCode, toggleModifiers | own}); // the toggle key while the hold key is down
    if (withEscape) {
        combinations.push_back({keycode::escape, 0});
        if (const uint64_t own = modifierMaskOfKey(keyCode))
            combinations.push_back({keycode::escape, own});
    }
    return combinations;
}

} // namespace quillo
