#include "Platform/Linux/X11/KeyGrabs.h"

#include "Platform/Linux/X11/VirtualKeyCodes.h"

#include <algorithm>

namespace quillo {

bool KeyGrabs::grabOne(const KeyCombination& combination) {
    uint16_t modifiers = 0;
    if ((combination.modifiers & keyflag::shift) != 0)
        modifiers |= XCB_MOD_MASK_SHIFT;
    if ((combination.modifiers & keyflag::control) != 0)
        modifiers |= XCB_MOD_MASK_CONTROL;
    if ((combination.modifiers & keyflag::option) != 0)
        modifiers |= m_map.option;
    if ((combination.modifiers & keyflag::command) != 0)
        modifiers |= m_map.command;

    std::vector<std::pair<Grabbed, xcb_void_cookie_t>> asked;
    for (const uint16_t evdev : evdevCodesForVirtualKeyCode(combination.keyCode)) {
        if (evdev + x11KeycodeOffset > 255)
            continue;
        for (const uint16_t locks : m_map.locks) {
            const Grabbed grab{static_cast<xcb_keycode_t>(evdev + x11KeycodeOffset),
                               static_cast<uint16_t>(modifiers | locks)};
            asked.emplace_back(grab, xcb_grab_key_checked(m_connection.get(), 0, m_connection.root(), grab.modifiers,
                                                          grab.keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        }
    }
    bool all = !asked.empty();
    std::vector<Grabbed> got;
    for (const auto& [grab, cookie] : asked) {
        if (adopt(xcb_request_check(m_connection.get(), cookie)))
            all = false;
        else
            got.push_back(grab);
    }
    if (all) {
        m_grabbed.insert(m_grabbed.end(), got.begin(), got.end());
    } else {
        // A combination that works only in some states of Num Lock would confuse the user, so release all of its grabs.
        for (const Grabbed& grab : got)
            xcb_ungrab_key(m_connection.get(), grab.keycode, m_connection.root(), grab.modifiers);
    }
    return all;
}

void KeyGrabs::grab(std::vector<KeyCombination> combinations) {
    release();
    m_wanted = std::move(combinations);
    m_map = ModifierMap::read(m_connection);
    for (const KeyCombination& combination : m_wanted) {
        if (sideBitOfModifierKey(combination.keyCode) == 0 && !grabOne(combination))
            m_unavailable.push_back(combination);
    }
    m_connection.flush();
}

bool KeyGrabs::isFree(const KeyCombination& combination) {
    const auto isIn = [&](const auto& list) { return std::ranges::find(list, combination) != list.end(); };
    if (isIn(m_wanted))
        return !isIn(m_unavailable);
    const size_t before = m_grabbed.size();
    const bool free = grabOne(combination);
    releaseFrom(before);
    return free;
}

void KeyGrabs::release() {
    releaseFrom(0);
    m_unavailable.clear();
}

void KeyGrabs::releaseFrom(size_t first) {
    for (size_t index = first; index < m_grabbed.size(); ++index)
        xcb_ungrab_key(m_connection.get(), m_grabbed[index].keycode, m_connection.root(), m_grabbed[index].modifiers);
    m_connection.flush();
    m_grabbed.resize(first);
}

void KeyGrabs::modifierMappingChanged(const ModifierMap& map) {
    if (map.option != m_map.option || map.command != m_map.command || map.locks != m_map.locks)
        grab(std::move(m_wanted));
}

} // namespace quillo
