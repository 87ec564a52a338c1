#include "Platform/Linux/X11/ModifierMap.h"

#include "Platform/KeyEvents.h"

#include <algorithm>
#include <span>

#include <xkbcommon/xkbcommon-keysyms.h>

namespace quillo {

namespace {

/// The symbols of every key, in all groups and levels.
class Symbols {
public:
    explicit Symbols(const XcbConnection& connection) {
        const auto* setup = xcb_get_setup(connection.get());
        m_first = setup->min_keycode;
        const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
        m_reply = adopt(xcb_get_keyboard_mapping_reply(
            connection.get(), xcb_get_keyboard_mapping(connection.get(), m_first, count), nullptr));
        if (m_reply)
            m_all = {xcb_get_keyboard_mapping_keysyms(m_reply.get()),
                     static_cast<size_t>(xcb_get_keyboard_mapping_keysyms_length(m_reply.get()))};
    }

    [[nodiscard]] std::span<const xcb_keysym_t> of(size_t keycode) const {
        const size_t width = m_reply ? m_reply->keysyms_per_keycode : 0;
        return keycode < m_first || (keycode - m_first + 1) * width > m_all.size()
                   ? std::span<const xcb_keysym_t>()
                   : m_all.subspan((keycode - m_first) * width, width);
    }
    [[nodiscard]] bool has(size_t keycode, std::initializer_list<xcb_keysym_t> wanted) const {
        return std::ranges::find_first_of(of(keycode), wanted) != of(keycode).end();
    }

private:
    xcb_keycode_t m_first = 0;
    XcbOwned<xcb_get_keyboard_mapping_reply_t> m_reply;
    std::span<const xcb_keysym_t> m_all;
};

/// The keys of the eight modifiers.
std::array<std::vector<xcb_keycode_t>, 8> modifierRows(const XcbConnection& connection) {
    std::array<std::vector<xcb_keycode_t>, 8> rows;
    const auto reply =
        adopt(xcb_get_modifier_mapping_reply(connection.get(), xcb_get_modifier_mapping(connection.get()), nullptr));
    const auto* keys = reply ? xcb_get_modifier_mapping_keycodes(reply.get()) : nullptr;
    for (size_t row = 0; reply && row < rows.size(); ++row)
        std::copy_if(keys + row * reply->keycodes_per_modifier, keys + (row + 1) * reply->keycodes_per_modifier,
                     std::back_inserter(rows[row]), [](xcb_keycode_t key) { return key != 0; });
    return rows;
}

} // namespace

ModifierMap ModifierMap::read(const XcbConnection& connection) {
    ModifierMap map;
    const auto rows = modifierRows(connection);
    const Symbols symbols(connection);
    const auto row = [&](std::initializer_list<xcb_keysym_t> wanted) -> uint16_t {
        for (size_t index = XCB_MAP_INDEX_1; index < rows.size(); ++index) {
            if (std::ranges::any_of(rows[index], [&](xcb_keycode_t key) { return symbols.has(key, wanted); }))
                return static_cast<uint16_t>(1U << index);
        }
        return 0;
    };
    if (const uint16_t found = row({XKB_KEY_Alt_L, XKB_KEY_Alt_R}))
        map.option = found;
    if (const uint16_t found = row({XKB_KEY_Super_L, XKB_KEY_Super_R}))
        map.command = found;
    for (const uint16_t lock :
         {static_cast<uint16_t>(XCB_MOD_MASK_LOCK), row({XKB_KEY_Num_Lock}), row({XKB_KEY_Scroll_Lock})}) {
        for (size_t index = 0, count = map.locks.size(); lock != 0 && index < count; ++index)
            map.locks.push_back(map.locks[index] | lock);
    }
    for (size_t index = 0; index < rows.size(); ++index) {
        const auto bit = static_cast<uint16_t>(1U << index);
        const uint64_t kind = (bit == XCB_MOD_MASK_SHIFT ? keyflag::shift : 0) |
                              (bit == XCB_MOD_MASK_CONTROL ? keyflag::control : 0) |
                              (bit == map.option ? keyflag::option : 0) | (bit == map.command ? keyflag::command : 0);
        for (const xcb_keycode_t key : rows[index]) {
            // With a US and a German layout the right Alt key is in the row of Alt and yet AltGr in one of them.
            const bool isAltGr = symbols.has(key, {XKB_KEY_ISO_Level3_Shift, XKB_KEY_Mode_switch});
            map.kinds[key] |= isAltGr ? kind & ~keyflag::option : kind;
        }
    }
    return map;
}

xcb_keycode_t neutralKey(const XcbConnection& connection) {
    const auto rows = modifierRows(connection);
    const Symbols symbols(connection);
    for (xcb_keycode_t key = xcb_get_setup(connection.get())->max_keycode; key >= 8; --key) {
        const auto own = symbols.of(key);
        if (!own.empty() && std::ranges::all_of(own, [](xcb_keysym_t symbol) { return symbol == XCB_NO_SYMBOL; }) &&
            std::ranges::none_of(rows, [&](const auto& row) { return std::ranges::count(row, key) > 0; }))
            return key;
    }
    return 0;
}

} // namespace quillo
