#pragma once

#include "Platform/Accessibility.h"

#include <functional>
#include <memory>

namespace quillo {

/// The accessibility bus, AT-SPI 2 over D-Bus. Without one the focused element is never told. `keyboardIsGrabbed` tells
/// whether another program holds the keyboard; it may be left out where that cannot be known.
std::unique_ptr<Accessibility> createAtSpiAccessibility(std::function<bool()> keyboardIsGrabbed = {});

} // namespace quillo
