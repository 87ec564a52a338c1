#pragma once

#include "Platform/Accessibility.h"

#include <functional>
#include <memory>

namespace quillo {

/// The accessibility bus, AT-SPI 2 over D-Bus. Without a bus the focused element is unknown. `keyboardIsGrabbed`
/// returns whether another program has grabbed the keyboard; it may be empty where that is unknown.
std::unique_ptr<Accessibility> createAtSpiAccessibility(std::function<bool()> keyboardIsGrabbed = {});

} // namespace quillo
