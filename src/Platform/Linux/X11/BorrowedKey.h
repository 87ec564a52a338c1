#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <xkbcommon/xkbcommon.h>

#include <vector>

namespace quillo {

/// A key in use that temporarily produces another letter.
///
/// For chords under a layout of another script: some programs look at the position of the key, others at its letter,
/// and only the real key with that letter satisfies both. `giveBack` or the destructor restores its meaning. Until then
/// the old meaning is recorded on the root window, so that the next start can restore what a killed process left.
class BorrowedKey {
public:
    explicit BorrowedKey(XcbConnection& connection);
    ~BorrowedKey() { giveBack(); }
    BorrowedKey(const BorrowedKey&) = delete;
    BorrowedKey& operator=(const BorrowedKey&) = delete;

    /// False when the mapping cannot be read.
    bool borrow(xcb_keycode_t key, xkb_keysym_t keysym);
    void giveBack();
    [[nodiscard]] bool isBorrowed() const { return m_key != 0; }

private:
    XcbConnection& m_connection;
    xcb_keycode_t m_key = 0;
    std::vector<xcb_keysym_t> m_symbols; ///< the key's original symbols
};

} // namespace quillo
