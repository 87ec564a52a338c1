#pragma once

#include "Platform/Accessibility.h"
#include "Platform/Linux/AtSpi/AtSpiSwitch.h"

#include <functional>
#include <memory>

namespace quillo {

/// The accessibility bus, AT-SPI 2 over D-Bus. Without a bus the focused element is unknown. `keyboardIsGrabbed`
/// returns whether another program has grabbed the keyboard; it may be empty where that is unknown. Switches the
/// desktop's accessibility on, and off again at its end if it was off.
std::unique_ptr<Accessibility> createAtSpiAccessibility(std::function<bool()> keyboardIsGrabbed = {},
                                                        AtSpiSwitchMemory memory = {});

} // namespace quillo
