#include "Services/Settings/KeyCodeLabels.h"

#include "Platform/KeyEvents.h"

#include <QHash>
#include <QStringList>

namespace quillo {
namespace {

/// The text of the number pad's keys; its placeholder is the sign on the key.
constexpr const char* keypad = "key.keypad";

constexpr KeyLabel labels[] = {
    // clang-format off
    {0, "A"}, {1, "S"}, {2, "D"}, {3, "F"}, {4, "H"}, {5, "G"}, {6, "Z"}, {7, "X"}, {8, "C"}, {9, "V"}, {11, "B"},
    {12, "Q"}, {13, "W"}, {14, "E"}, {15, "R"}, {16, "Y"}, {17, "T"}, {31, "O"}, {32, "U"}, {34, "I"}, {35, "P"},
    {37, "L"}, {38, "J"}, {40, "K"}, {45, "N"}, {46, "M"},
    {18, "1"}, {19, "2"}, {20, "3"}, {21, "4"}, {23, "5"}, {22, "6"}, {26, "7"}, {28, "8"}, {25, "9"}, {29, "0"},
    {24, "="}, {27, "-"}, {30, "]"}, {33, "["}, {39, "'"}, {41, ";"}, {42, "\\"}, {43, ","}, {44, "/"}, {47, "."},
    {50, "`"}, {10, "<"},
    {36, "Return", "key.return"}, {48, "Tab", "key.tab"}, {49, "Space", "key.space"},
    {51, "Backspace", "key.backspace"}, {53, "Escape", "key.escape"}, {57, "Caps Lock", "key.capsLock"},
    {54, "Right Super", "key.rightSuper"}, {55, "Left Super", "key.leftSuper"}, {56, "Left Shift", "key.leftShift"},
    {58, "Left Alt", "key.leftAlt"}, {59, "Left Ctrl", "key.leftCtrl"}, {60, "Right Shift", "key.rightShift"},
    {61, "Right Alt", "key.rightAlt"}, {62, "Right Ctrl", "key.rightCtrl"}, {63, "Fn"},
    {122, "F1"}, {120, "F2"}, {99, "F3"}, {118, "F4"}, {96, "F5"}, {97, "F6"}, {98, "F7"}, {100, "F8"}, {101, "F9"},
    {109, "F10"}, {103, "F11"}, {111, "F12"}, {105, "F13"}, {107, "F14"}, {113, "F15"}, {106, "F16"}, {64, "F17"},
    {79, "F18"}, {80, "F19"}, {90, "F20"},
    {110, "Menu", "key.menu"}, {114, "Insert", "key.insert"}, {115, "Home", "key.home"},
    {116, "Page Up", "key.pageUp"}, {117, "Delete", "key.delete"}, {119, "End", "key.end"},
    {121, "Page Down", "key.pageDown"}, {123, "Left", "key.left"}, {124, "Right", "key.right"},
    {125, "Down", "key.down"}, {126, "Up", "key.up"}, {71, "Num Lock", "key.numLock"},
    {65, "Keypad .", keypad}, {67, "Keypad *", keypad}, {69, "Keypad +", keypad}, {75, "Keypad /", keypad},
    {76, "Keypad Enter", "key.keypadEnter"}, {78, "Keypad -", keypad}, {81, "Keypad =", keypad},
    {82, "Keypad 0", keypad}, {83, "Keypad 1", keypad}, {84, "Keypad 2", keypad}, {85, "Keypad 3", keypad},
    {86, "Keypad 4", keypad}, {87, "Keypad 5", keypad}, {88, "Keypad 6", keypad}, {89, "Keypad 7", keypad},
    {91, "Keypad 8", keypad}, {92, "Keypad 9", keypad},
    // clang-format on
};

struct ModifierKey {
    uint16_t keyCode;
    uint64_t bit;
    uint64_t mask;
};

constexpr ModifierKey modifierKeys[] = {
    {keycode::rightCommand, keyflag::rightCommand, keyflag::command},
    {keycode::leftCommand, keyflag::leftCommand, keyflag::command},
    {keycode::leftShift, keyflag::leftShift, keyflag::shift},
    {keycode::leftOption, keyflag::leftOption, keyflag::option},
    {keycode::leftControl, keyflag::leftControl, keyflag::control},
    {keycode::rightShift, keyflag::rightShift, keyflag::shift},
    {keycode::rightOption, keyflag::rightOption, keyflag::option},
    {keycode::rightControl, keyflag::rightControl, keyflag::control},
    {keycode::function, keyflag::function, 0},
};

const ModifierKey* findModifier(uint16_t keyCode) {
    const auto* found = std::find_if(std::begin(modifierKeys), std::end(modifierKeys),
                                     [&](const auto& key) { return key.keyCode == keyCode; });
    return found != std::end(modifierKeys) ? found : nullptr;
}

} // namespace

std::span<const KeyLabel> keyLabels() { return labels; }

QString keyCodeToString(uint16_t keyCode) {
    static const auto table = [] {
        QHash<uint16_t, QString> result;
        for (const auto& key : labels)
            result.insert(key.keyCode, QString::fromLatin1(key.label));
        return result;
    }();
    const auto found = table.constFind(keyCode);
    return found != table.constEnd() ? *found : QStringLiteral("Key %1").arg(keyCode);
}

QString keyCombinationToString(uint16_t keyCode, uint64_t modifiers) {
    QStringList parts;
    if (modifiers & keyflag::control)
        parts << QStringLiteral("Ctrl");
    if (modifiers & keyflag::option)
        parts << QStringLiteral("Alt");
    if (modifiers & keyflag::shift)
        parts << QStringLiteral("Shift");
    if (modifiers & keyflag::command)
        parts << QStringLiteral("Super");
    parts << keyCodeToString(keyCode);
    return parts.join(u'+');
}

uint64_t modifierKeyBit(uint16_t keyCode) {
    const auto* key = findModifier(keyCode);
    return key ? key->bit : 0;
}

uint64_t modifierMaskOfKey(uint16_t keyCode) {
    const auto* key = findModifier(keyCode);
    return key ? key->mask : 0;
}

} // namespace quillo
