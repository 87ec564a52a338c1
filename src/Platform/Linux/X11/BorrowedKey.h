#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <xkbcommon/xkbcommon.h>

#include <vector>

namespace quillo {

/// A key in use that means another letter for a moment.
///
/// For chords under a layout of another script: some programs go by the place of the key, others by its letter, and
/// only the real key with the letter on it suits both. What it meant before is put back by `giveBack` or the
/// destructor, and is written on the root window meanwhile, so that the next start puts back what a killed process
/// left.
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
    std::vector<xcb_keysym_t> m_symbols; ///< of the key, as they were
};

} // namespace quillo
