#include "Services/Hotkeys/KeyCapture.h"

#include "Services/Settings/KeyCodeLabels.h"

namespace quillo {

std::optional<KeyCombination> KeyCapture::handle(const KeyEvent& event) {
    if (event.type == KeyEventType::keyDown && !event.isAutoRepeat)
        return KeyCombination{event.keyCode, event.flags & keyflag::mask};
    if (event.type != KeyEventType::flagsChanged)
        return std::nullopt;
    const bool isDown = (event.flags & modifierKeyBit(event.keyCode)) != 0;
    if (!isDown && m_lone == event.keyCode)
        return KeyCombination{event.keyCode, 0};
    const bool isAlone = (event.flags & keyflag::mask & ~modifierMaskOfKey(event.keyCode)) == 0;
    m_lone = isDown && isAlone ? event.keyCode : 0;
    return std::nullopt;
}

} // namespace quillo
