#include "Services/Settings/KeyCodeLabels.h"

#include "Platform/KeyEvents.h"

#include <QHash>
#include <QStringList>

namespace quillo {
namespace {

struct KeyLabel {
    uint16_t keyCode;
    const char* label;
};

constexpr KeyLabel labels[] = {
    // clang-format off
    {0, "A"}, {1, "S"}, {2, "D"}, {3, "F"}, {4, "H"}, {5, "G"}, {6, "Z"}, {7, "X"}, {8, "C"}, {9, "V"}, {11, "B"},
    {12, "Q"}, {13, "W"}, {14, "E"}, {15, "R"}, {16, "Y"}, {17, "T"}, {31, "O"}, {32, "U"}, {34, "I"}, {35, "P"},
    {37, "L"}, {38, "J"}, {40, "K"}, {45, "N"}, {46, "M"},
    {18, "1"}, {19, "2"}, {20, "3"}, {21, "4"}, {23, "5"}, {22, "6"}, {26, "7"}, {28, "8"}, {25, "9"}, {29, "0"},
    {24, "="}, {27, "-"}, {30, "]"}, {33, "["}, {39, "'"}, {41, ";"}, {42, "\\"}, {43, ","}, {44, "/"}, {47, "."},
    {50, "`"}, {10, "<"},
    {36, "Return"}, {48, "Tab"}, {49, "Space"}, {51, "Backspace"}, {53, "Escape"}, {57, "Caps Lock"},
    {54, "Right Super"}, {55, "Left Super"}, {56, "Left Shift"}, {58, "Left Alt"}, {59, "Left Ctrl"},
    {60, "Right Shift"}, {61, "Right Alt"}, {62, "Right Ctrl"}, {63, "Fn"},
    {122, "F1"}, {120, "F2"}, {99, "F3"}, {118, "F4"}, {96, "F5"}, {97, "F6"}, {98, "F7"}, {100, "F8"}, {101, "F9"},
    {109, "F10"}, {103, "F11"}, {111, "F12"}, {105, "F13"}, {107, "F14"}, {113, "F15"}, {106, "F16"}, {64, "F17"},
    {79, "F18"}, {80, "F19"}, {90, "F20"},
    {110, "Menu"}, {114, "Insert"}, {115, "Home"}, {116, "Page Up"}, {117, "Delete"}, {119, "End"},
    {121, "Page Down"}, {123, "Left"}, {124, "Right"}, {125, "Down"}, {126, "Up"}, {71, "Num Lock"},
    {65, "Keypad ."}, {67, "Keypad *"}, {69, "Keypad +"}, {75, "Keypad /"}, {76, "Keypad Enter"}, {78, "Keypad -"},
    {81, "Keypad ="}, {82, "Keypad 0"}, {83, "Keypad 1"}, {84, "Keypad 2"}, {85, "Keypad 3"}, {86, "Keypad 4"},
    {87, "Keypad 5"}, {88, "Keypad 6"}, {89, "Keypad 7"}, {91, "Keypad 8"}, {92, "Keypad 9"},
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

QString keyCodeToString(uint16_t keyCode) {
    static const auto table = [] {
        QHash<uint16_t, QString> result;
        for (const auto& [code, label] : labels)
            result.insert(code, QString::fromLatin1(label));
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
