#include "Platform/Linux/X11/SpareKeys.h"

#include <algorithm>

namespace quillo {

namespace {
constexpr const char* marker = "_QUILLO_BOUND_KEYCODES";
} // namespace

SpareKeys::SpareKeys(XcbConnection& connection) : m_connection(connection) {
    if (const auto left = m_connection.property(m_connection.root(), m_connection.atom(marker))) {
        for (const uint32_t keycode : left->items())
            m_bound.push_back(static_cast<xcb_keycode_t>(keycode));
        restore();
    }
}

void SpareKeys::bind(std::span<const xcb_keycode_t> keys, std::span<const xkb_keysym_t> keysyms) {
    const size_t count = std::min(keys.size(), keysyms.size());
    for (const xcb_keycode_t key : keys.first(count)) {
        if (std::find(m_bound.begin(), m_bound.end(), key) == m_bound.end())
            m_bound.push_back(key);
    }
    remember();
    // Send one request for each run of neighbouring keys, because each request notifies every client. Set the symbol on
    // both levels, so that a letter is not folded to the lower case of its pair.
    for (size_t first = 0; first < count;) {
        size_t last = first + 1;
        while (last < count && keys[last] == keys[last - 1] + 1)
            ++last;
        std::vector<xcb_keysym_t> symbols;
        for (size_t index = first; index < last; ++index)
            symbols.insert(symbols.end(), 2, keysyms[index]);
        xcb_change_keyboard_mapping(m_connection.get(), static_cast<uint8_t>(last - first), keys[first], 2,
                                    symbols.data());
        first = last;
    }
    m_connection.roundTrip();
}

void SpareKeys::restore() {
    if (m_bound.empty())
        return;
    std::sort(m_bound.begin(), m_bound.end());
    for (size_t first = 0; first < m_bound.size();) {
        size_t last = first + 1;
        while (last < m_bound.size() && m_bound[last] == m_bound[last - 1] + 1)
            ++last;
        const std::vector<xcb_keysym_t> nothing(last - first, XCB_NO_SYMBOL);
        xcb_change_keyboard_mapping(m_connection.get(), static_cast<uint8_t>(last - first), m_bound[first], 1,
                                    nothing.data());
        first = last;
    }
    m_bound.clear();
    remember();
    m_connection.roundTrip();
}

void SpareKeys::remember() {
    const xcb_atom_t name = m_connection.atom(marker);
    if (m_bound.empty()) {
        xcb_delete_property(m_connection.get(), m_connection.root(), name);
        return;
    }
    const std::vector<uint32_t> items(m_bound.begin(), m_bound.end());
    xcb_change_property(m_connection.get(), XCB_PROP_MODE_REPLACE, m_connection.root(), name, XCB_ATOM_CARDINAL, 32,
                        static_cast<uint32_t>(items.size()), items.data());
}

} // namespace quillo
