#include "Platform/Linux/X11/VirtualKeyCodes.h"

#include "Platform/KeyEvents.h"

#include <algorithm>
#include <array>
#include <iterator>

#include <linux/input-event-codes.h>

namespace quillo {

namespace {

struct Pair {
    uint16_t evdev;
    uint16_t virtualKey;
};

// Where several kernel codes share a virtual one, the first is the usual key.
constexpr Pair pairs[] = {
    // Letters, by their place on an ANSI keyboard.
    {KEY_A, 0},
    {KEY_S, 1},
    {KEY_D, 2},
    {KEY_F, 3},
    {KEY_H, 4},
    {KEY_G, 5},
    {KEY_Z, 6},
    {KEY_X, 7},
    {KEY_C, 8},
    {KEY_V, 9},
    {KEY_B, 11},
    {KEY_Q, 12},
    {KEY_W, 13},
    {KEY_E, 14},
    {KEY_R, 15},
    {KEY_Y, 16},
    {KEY_T, 17},
    {KEY_O, 31},
    {KEY_U, 32},
    {KEY_I, 34},
    {KEY_P, 35},
    {KEY_L, 37},
    {KEY_J, 38},
    {KEY_K, 40},
    {KEY_N, 45},
    {KEY_M, 46},
    // Digits and punctuation.
    {KEY_1, 18},
    {KEY_2, 19},
    {KEY_3, 20},
    {KEY_4, 21},
    {KEY_6, 22},
    {KEY_5, 23},
    {KEY_EQUAL, 24},
    {KEY_9, 25},
    {KEY_7, 26},
    {KEY_MINUS, 27},
    {KEY_8, 28},
    {KEY_0, 29},
    {KEY_RIGHTBRACE, 30},
    {KEY_LEFTBRACE, 33},
    {KEY_APOSTROPHE, 39},
    {KEY_SEMICOLON, 41},
    {KEY_BACKSLASH, 42},
    {KEY_COMMA, 43},
    {KEY_SLASH, 44},
    {KEY_DOT, 47},
    {KEY_GRAVE, 50},
    {KEY_102ND, 10},
    // Editing and navigation.
    {KEY_ENTER, keycode::returnKey},
    {KEY_TAB, keycode::tab},
    {KEY_SPACE, keycode::space},
    {KEY_BACKSPACE, keycode::deleteKey},
    {KEY_ESC, keycode::escape},
    {KEY_CAPSLOCK, 57},
    {KEY_COMPOSE, 110},
    {KEY_INSERT, 114},
    {KEY_HOME, 115},
    {KEY_PAGEUP, 116},
    {KEY_DELETE, 117},
    {KEY_END, 119},
    {KEY_PAGEDOWN, 121},
    {KEY_LEFT, 123},
    {KEY_RIGHT, 124},
    {KEY_DOWN, 125},
    {KEY_UP, 126},
    // Modifiers.
    {KEY_RIGHTMETA, keycode::rightCommand},
    {KEY_LEFTMETA, keycode::leftCommand},
    {KEY_LEFTSHIFT, keycode::leftShift},
    {KEY_LEFTALT, keycode::leftOption},
    {KEY_LEFTCTRL, keycode::leftControl},
    {KEY_RIGHTSHIFT, keycode::rightShift},
    {KEY_RIGHTALT, keycode::rightOption},
    {KEY_RIGHTCTRL, keycode::rightControl},
    {KEY_FN, keycode::function},
    // Function keys. The three keys above the arrows are where other keyboards have F13 to F15.
    {KEY_F1, 122},
    {KEY_F2, 120},
    {KEY_F3, 99},
    {KEY_F4, 118},
    {KEY_F5, 96},
    {KEY_F6, 97},
    {KEY_F7, 98},
    {KEY_F8, 100},
    {KEY_F9, 101},
    {KEY_F10, 109},
    {KEY_F11, 103},
    {KEY_F12, 111},
    {KEY_F13, 105},
    {KEY_SYSRQ, 105},
    {KEY_F14, 107},
    {KEY_SCROLLLOCK, 107},
    {KEY_F15, 113},
    {KEY_PAUSE, 113},
    {KEY_F16, 106},
    {KEY_F17, 64},
    {KEY_F18, 79},
    {KEY_F19, 80},
    {KEY_F20, 90},
    // Keypad.
    {KEY_KP0, 82},
    {KEY_KP1, 83},
    {KEY_KP2, 84},
    {KEY_KP3, 85},
    {KEY_KP4, 86},
    {KEY_KP5, 87},
    {KEY_KP6, 88},
    {KEY_KP7, 89},
    {KEY_KP8, 91},
    {KEY_KP9, 92},
    {KEY_KPDOT, 65},
    {KEY_KPASTERISK, 67},
    {KEY_KPPLUS, 69},
    {KEY_NUMLOCK, 71},
    {KEY_KPSLASH, 75},
    {KEY_KPENTER, 76},
    {KEY_KPMINUS, 78},
    {KEY_KPEQUAL, 81},
    {KEY_KPCOMMA, 95},
    // Japanese keyboards, and the volume keys; other media keys have no virtual code.
    {KEY_YEN, 93},
    {KEY_RO, 94},
    {KEY_MUHENKAN, 102},
    {KEY_HENKAN, 104},
    {KEY_KATAKANAHIRAGANA, 104},
    {KEY_VOLUMEUP, 72},
    {KEY_VOLUMEDOWN, 73},
    {KEY_MUTE, 74},
};

} // namespace

std::optional<uint16_t> virtualKeyCodeForEvdev(uint16_t evdevCode) {
    static constexpr uint16_t none = 0xFFFF;
    static const auto byEvdev = [] {
        std::array<uint16_t, KEY_FN + 1> table{};
        table.fill(none);
        for (const Pair& pair : pairs)
            table[pair.evdev] = pair.virtualKey;
        return table;
    }();
    if (evdevCode >= byEvdev.size() || byEvdev[evdevCode] == none)
        return std::nullopt;
    return byEvdev[evdevCode];
}

std::vector<uint16_t> evdevCodesForVirtualKeyCode(uint16_t virtualKeyCode) {
    std::vector<uint16_t> codes;
    for (const Pair& pair : pairs) {
        if (pair.virtualKey == virtualKeyCode)
            codes.push_back(pair.evdev);
    }
    return codes;
}

uint64_t sideBitOfModifierKey(uint16_t virtualKeyCode) {
    switch (virtualKeyCode) {
    case keycode::rightCommand:
        return keyflag::rightCommand;
    case keycode::leftCommand:
        return keyflag::leftCommand;
    case keycode::leftShift:
        return keyflag::leftShift;
    case keycode::rightShift:
        return keyflag::rightShift;
    case keycode::leftOption:
        return keyflag::leftOption;
    case keycode::rightOption:
        return keyflag::rightOption;
    case keycode::leftControl:
        return keyflag::leftControl;
    case keycode::rightControl:
        return keyflag::rightControl;
    case keycode::function:
        return keyflag::function;
    default:
        return 0;
    }
}

} // namespace quillo
