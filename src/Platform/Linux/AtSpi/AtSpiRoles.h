#pragma once

#include <QString>

#include <cstdint>

namespace quillo {

/// Numbers of the AT-SPI protocol (atspi-constants.h).
namespace atspi {
inline constexpr uint32_t rolePasswordText = 40;
inline constexpr uint32_t roleTerminal = 60;
inline constexpr unsigned stateActive = 1;
inline constexpr unsigned stateEditable = 7;
inline constexpr unsigned stateFocused = 12;
inline constexpr unsigned stateMultiLine = 17;
inline constexpr unsigned stateShowing = 25;
inline constexpr unsigned stateManagesDescendants = 31;
} // namespace atspi

/// The role name of the code for an AT-SPI role number; "AXUnknown" for what has no counterpart. `states` is the
/// element's state set, which distinguishes a text area from a text field.
[[nodiscard]] QString axRoleForAtSpi(uint32_t role, uint64_t states);

} // namespace quillo
