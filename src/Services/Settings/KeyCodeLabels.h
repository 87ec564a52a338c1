#pragma once

#include <QString>

#include <cstdint>
#include <span>

namespace quillo {

/// A key and its English label.
struct KeyLabel {
    uint16_t keyCode;
    const char* label;
    const char* text = nullptr; ///< key of its catalogue text; null where the label is the same in every language
};
/// Every key that has a label.
std::span<const KeyLabel> keyLabels();

/// The English name of a key as printed on a PC keyboard: "A", "Space", "Right Super", "F5"; "Key 200" for a code
/// without a name. Letters and signs by their position on an ANSI keyboard.
QString keyCodeToString(uint16_t keyCode);
/// The English name of the key with its modifiers, in the order Control, Alt, Shift, Super: "Ctrl+Alt+Space".
QString keyCombinationToString(uint16_t keyCode, uint64_t modifiers);
/// The bit that is set while that modifier key is down; 0 for a key that is not a modifier.
uint64_t modifierKeyBit(uint16_t keyCode);
/// The bit of `keyflag::mask` that the modifier key contributes; 0 for other keys and fn.
uint64_t modifierMaskOfKey(uint16_t keyCode);

} // namespace quillo
