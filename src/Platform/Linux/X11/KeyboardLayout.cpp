#include "Platform/Linux/X11/KeyboardLayout.h"

#include "Platform/Linux/X11/ModifierMap.h"

#include <algorithm>
#include <span>

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon-x11.h>

namespace quillo {

namespace {

template <auto Release>
struct Release_ {
    template <class T>
    void operator()(T* object) const {
        Release(object);
    }
};
using XkbContext = std::unique_ptr<xkb_context, Release_<xkb_context_unref>>;
using XkbKeymap = std::unique_ptr<xkb_keymap, Release_<xkb_keymap_unref>>;
using XkbState = std::unique_ptr<xkb_state, Release_<xkb_state_unref>>;

bool isKeypad(xkb_keysym_t keysym) { return keysym >= XKB_KEY_KP_Space && keysym <= XKB_KEY_KP_Equal; }

/// Whether the level is reached with exactly `wanted` modifiers.
bool levelIsReachedBy(xkb_keymap* keymap, xkb_keycode_t key, xkb_layout_index_t group, xkb_level_index_t level,
                      xkb_mod_mask_t wanted) {
    std::array<xkb_mod_mask_t, 32> masks{};
    const size_t count = xkb_keymap_key_get_mods_for_level(keymap, key, group, level, masks.data(), masks.size());
    return std::find(masks.begin(), masks.begin() + static_cast<std::ptrdiff_t>(count), wanted) !=
           masks.begin() + static_cast<std::ptrdiff_t>(count);
}

} // namespace

std::optional<KeyboardLayout> KeyboardLayout::read(const XcbConnection& connection) {
    auto* const c = connection.get();
    if (xkb_x11_setup_xkb_extension(c, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                    XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 0)
        return std::nullopt;
    const int32_t device = xkb_x11_get_core_keyboard_device_id(c);
    const XkbContext context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    const XkbKeymap keymap(
        context ? xkb_x11_keymap_new_from_device(context.get(), c, device, XKB_KEYMAP_COMPILE_NO_FLAGS) : nullptr);
    const XkbState state(keymap ? xkb_x11_state_new_from_device(keymap.get(), c, device) : nullptr);
    if (!state)
        return std::nullopt;

    KeyboardLayout layout;
    layout.m_capsLock = xkb_state_mod_name_is_active(state.get(), XKB_MOD_NAME_CAPS, XKB_STATE_MODS_LOCKED) > 0;
    const xkb_layout_index_t effective = xkb_state_serialize_layout(state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    const xkb_mod_mask_t shift = 1U << xkb_keymap_mod_get_index(keymap.get(), XKB_MOD_NAME_SHIFT);

    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap.get());
         key <= std::min(xkb_keymap_max_keycode(keymap.get()), 255U); ++key) {
        const xkb_layout_index_t groups = xkb_keymap_num_layouts_for_key(keymap.get(), key);
        if (groups == 0)
            continue;
        const xkb_layout_index_t group = effective % groups;
        for (xkb_layout_index_t other = 0; other < groups; ++other) {
            const xkb_keysym_t* keysyms = nullptr;
            if (other != group && xkb_keymap_key_get_syms_by_level(keymap.get(), key, other, 0, &keysyms) == 1)
                layout.m_otherKeysyms.emplace(keysyms[0], static_cast<xcb_keycode_t>(key));
        }
        for (xkb_level_index_t level = 0; level < xkb_keymap_num_levels_for_key(keymap.get(), key, group); ++level) {
            const xkb_keysym_t* keysyms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap.get(), key, group, level, &keysyms) != 1 ||
                isKeypad(keysyms[0]))
                continue;
            const bool plain = levelIsReachedBy(keymap.get(), key, group, level, 0);
            if (!plain && !levelIsReachedBy(keymap.get(), key, group, level, shift))
                continue;
            const auto keycode = static_cast<xcb_keycode_t>(key);
            if (plain)
                layout.m_plainKeysyms.emplace(keysyms[0], keycode);
            if (const char32_t codePoint = xkb_keysym_to_utf32(keysyms[0]); codePoint >= U' ' && codePoint != 0x7f) {
                const auto [known, added] = layout.m_characters.try_emplace(codePoint, LayoutKey{keycode, !plain});
                if (!added && plain && known->second.shift)
                    known->second = LayoutKey{keycode, false};
            }
        }
    }

    if (const auto modifiers = adopt(xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr))) {
        const auto* keys = xcb_get_modifier_mapping_keycodes(modifiers.get());
        layout.m_keysPerModifier = modifiers->keycodes_per_modifier;
        layout.m_modifierKeys.assign(keys, keys + xcb_get_modifier_mapping_keycodes_length(modifiers.get()));
    }
    const auto* setup = xcb_get_setup(c);
    const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    if (const auto mapping =
            adopt(xcb_get_keyboard_mapping_reply(c, xcb_get_keyboard_mapping(c, setup->min_keycode, count), nullptr))) {
        const auto* keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
        const size_t width = mapping->keysyms_per_keycode;
        for (size_t index = 0; index < count; ++index) {
            const std::span row(keysyms + index * width, width);
            const auto keycode = static_cast<xcb_keycode_t>(setup->min_keycode + index);
            if (std::all_of(row.begin(), row.end(), [](xcb_keysym_t symbol) { return symbol == XCB_NO_SYMBOL; }) &&
                !layout.isModifierKey(keycode))
                layout.m_spareKeys.push_back(keycode);
        }
        // The last one stays without a symbol: the key event source presses it for its lack of effect.
        if (!layout.m_spareKeys.empty() && layout.m_spareKeys.back() == neutralKey(connection))
            layout.m_spareKeys.pop_back();
    }
    return layout;
}

std::optional<LayoutKey> KeyboardLayout::keyOf(char32_t codePoint) const {
    const auto found = m_characters.find(codePoint);
    return found == m_characters.end() ? std::nullopt : std::optional(found->second);
}

std::optional<xcb_keycode_t> KeyboardLayout::keyOfKeysym(xkb_keysym_t keysym) const {
    const auto found = m_plainKeysyms.find(keysym);
    return found == m_plainKeysyms.end() ? std::nullopt : std::optional(found->second);
}

std::optional<xcb_keycode_t> KeyboardLayout::keyInOtherGroup(xkb_keysym_t keysym) const {
    const auto found = m_otherKeysyms.find(keysym);
    return found == m_otherKeysyms.end() ? std::nullopt : std::optional(found->second);
}

xcb_keycode_t KeyboardLayout::modifierKey(xcb_map_index_t modifier) const {
    for (size_t index = 0; index < m_keysPerModifier; ++index) {
        const xcb_keycode_t keycode = m_modifierKeys[modifier * m_keysPerModifier + index];
        if (keycode != 0)
            return keycode;
    }
    return 0;
}

bool KeyboardLayout::isModifierKey(xcb_keycode_t keycode) const {
    return std::find(m_modifierKeys.begin(), m_modifierKeys.end(), keycode) != m_modifierKeys.end();
}

} // namespace quillo
