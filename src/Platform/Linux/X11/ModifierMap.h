#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <array>
#include <vector>

namespace quillo {

/// What each key does as a modifier, according to the server's modifier mapping. The keyboard layout decides it: the
/// right Alt key is Alt on a US layout and AltGr on a German one, and Caps Lock may be a Control key.
struct ModifierMap {
    uint16_t option = XCB_MOD_MASK_1;     ///< the server's bit of Alt
    uint16_t command = XCB_MOD_MASK_4;    ///< the server's bit of Super
    std::vector<uint16_t> locks = {0};    ///< every combination of the lock keys; the first is "no lock"
    std::array<uint64_t, 256> kinds = {}; ///< by X11 key code: the bits of `keyflag::mask` that the key sets

    static ModifierMap read(const XcbConnection& connection);
    bool operator==(const ModifierMap&) const = default;
};

/// The last key code that has no symbol and sets no modifier; 0 when there is none. Pressing it does nothing, and the
/// injector leaves it alone.
[[nodiscard]] xcb_keycode_t neutralKey(const XcbConnection& connection);

} // namespace quillo
