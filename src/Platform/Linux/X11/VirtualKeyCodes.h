#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace quillo {

/// The kernel's key codes (linux/input-event-codes.h) and the platform's virtual key codes, both by physical position,
/// so that a binding survives a change of layout. On X11 the key code is the kernel's plus `x11KeycodeOffset`.
inline constexpr uint16_t x11KeycodeOffset = 8;

/// The virtual key code of a kernel key code, if it has one.
[[nodiscard]] std::optional<uint16_t> virtualKeyCodeForEvdev(uint16_t evdevCode);

/// The kernel key codes for a virtual key code, the usual one first; empty when there is none.
[[nodiscard]] std::vector<uint16_t> evdevCodesForVirtualKeyCode(uint16_t virtualKeyCode);

/// The bit (`keyflag`) that is set while the very modifier key with this virtual key code is down; 0 for any other key.
/// Which kind of modifier the key is, depends on the layout: see `ModifierMap`.
[[nodiscard]] uint64_t sideBitOfModifierKey(uint16_t virtualKeyCode);

} // namespace quillo
