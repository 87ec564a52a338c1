#pragma once

#include "Platform/KeyEvents.h"

#include <functional>
#include <optional>

namespace quillo {

/// Finds out which key the user presses to choose it as a hotkey: a key with the modifiers that are down, or a modifier
/// key pressed and released alone.
class KeyCapture {
public:
    /// Nothing until the key is known.
    std::optional<KeyCombination> handle(const KeyEvent& event);

private:
    uint16_t m_lone = 0; ///< the modifier key that is down with no other key since
};

} // namespace quillo
