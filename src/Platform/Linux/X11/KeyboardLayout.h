#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace quillo {

/// The key that produces a character on the current layout.
struct LayoutKey {
    xcb_keycode_t keycode = 0;
    bool shift = false;
};

/// The keyboard mapping and the active group at the time of `read`: what each key produces, alone or with Shift.
class KeyboardLayout {
public:
    /// Nothing when the server has no keyboard extension.
    static std::optional<KeyboardLayout> read(const XcbConnection& connection);

    /// The key of a Unicode code point. Dead keys and the keypad do not count: what they produce depends on more than
    /// the key.
    [[nodiscard]] std::optional<LayoutKey> keyOf(char32_t codePoint) const;
    /// The key of a key symbol without modifiers.
    [[nodiscard]] std::optional<xcb_keycode_t> keyOfKeysym(xkb_keysym_t keysym) const;
    /// The key that has the symbol, without modifiers, in a group that is not active.
    [[nodiscard]] std::optional<xcb_keycode_t> keyInOtherGroup(xkb_keysym_t keysym) const;
    [[nodiscard]] bool capsLockIsOn() const { return m_capsLock; }
    /// A key that sets the modifier of that index (`XCB_MAP_INDEX_...`).
    [[nodiscard]] xcb_keycode_t modifierKey(xcb_map_index_t modifier) const;
    [[nodiscard]] bool isModifierKey(xcb_keycode_t keycode) const;
    /// Keys that produce nothing and set no modifier, without the one of `neutralKey`.
    [[nodiscard]] const std::vector<xcb_keycode_t>& spareKeys() const { return m_spareKeys; }

private:
    std::unordered_map<char32_t, LayoutKey> m_characters;
    std::unordered_map<xkb_keysym_t, xcb_keycode_t> m_plainKeysyms;
    std::unordered_map<xkb_keysym_t, xcb_keycode_t> m_otherKeysyms;
    std::vector<xcb_keycode_t> m_modifierKeys; ///< eight rows of m_keysPerModifier
    size_t m_keysPerModifier = 0;
    std::vector<xcb_keycode_t> m_spareKeys;
    bool m_capsLock = false;
};

} // namespace quillo
