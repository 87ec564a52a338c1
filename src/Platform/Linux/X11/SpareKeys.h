#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <xkbcommon/xkbcommon.h>

#include <span>
#include <vector>

namespace quillo {

/// Keys of the mapping that produce nothing, temporarily bound to characters that the layout lacks.
///
/// `restore` or the destructor undoes all bindings. The bound keys are also recorded on the root window, so that the
/// next process can undo what a killed one left.
class SpareKeys {
public:
    explicit SpareKeys(XcbConnection& connection);
    ~SpareKeys() { restore(); }
    SpareKeys(const SpareKeys&) = delete;
    SpareKeys& operator=(const SpareKeys&) = delete;

    /// Binds the first keys of `keys` to `keysyms`, one each, and waits until the server has done it.
    void bind(std::span<const xcb_keycode_t> keys, std::span<const xkb_keysym_t> keysyms);
    void restore();
    [[nodiscard]] bool isEmpty() const { return m_bound.empty(); }

private:
    void remember();
    XcbConnection& m_connection;
    std::vector<xcb_keycode_t> m_bound;
};

} // namespace quillo
