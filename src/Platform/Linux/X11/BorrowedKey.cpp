#include "Platform/Linux/X11/BorrowedKey.h"

#include <array>

namespace quillo {

namespace {
/// The key code and its symbols.
constexpr const char* marker = "_QUILLO_BORROWED_KEY";
} // namespace

BorrowedKey::BorrowedKey(XcbConnection& connection) : m_connection(connection) {
    const auto left = m_connection.property(m_connection.root(), m_connection.atom(marker));
    if (!left)
        return;
    const auto items = left->items();
    if (items.size() < 2 || items[0] > 255)
        return;
    m_key = static_cast<xcb_keycode_t>(items[0]);
    m_symbols.assign(items.begin() + 1, items.end());
    giveBack();
}

bool BorrowedKey::borrow(xcb_keycode_t key, xkb_keysym_t keysym) {
    auto* const c = m_connection.get();
    if (!isBorrowed()) {
        const auto mapping = adopt(xcb_get_keyboard_mapping_reply(c, xcb_get_keyboard_mapping(c, key, 1), nullptr));
        if (!mapping || mapping->keysyms_per_keycode == 0)
            return false;
        const auto* symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
        m_key = key;
        m_symbols.assign(symbols, symbols + mapping->keysyms_per_keycode);
        std::vector<uint32_t> items{key};
        items.insert(items.end(), m_symbols.begin(), m_symbols.end());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, m_connection.root(), m_connection.atom(marker), XCB_ATOM_CARDINAL,
                            32, static_cast<uint32_t>(items.size()), items.data());
    }
    const std::array<xcb_keysym_t, 2> letter{keysym, keysym};
    xcb_change_keyboard_mapping(c, 1, m_key, letter.size(), letter.data());
    m_connection.roundTrip();
    return true;
}

void BorrowedKey::giveBack() {
    if (!isBorrowed())
        return;
    xcb_change_keyboard_mapping(m_connection.get(), 1, m_key, static_cast<uint8_t>(m_symbols.size()), m_symbols.data());
    xcb_delete_property(m_connection.get(), m_connection.root(), m_connection.atom(marker));
    m_key = 0;
    m_symbols.clear();
    m_connection.roundTrip();
}

} // namespace quillo
