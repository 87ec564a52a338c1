#include "Platform/Linux/X11/KeyGrabs.h"

#include "Platform/Linux/X11/VirtualKeyCodes.h"

#include <algorithm>
#include <span>

#include <linux/input-event-codes.h>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace quillo {

namespace {

bool producesKeysym(const XcbConnection& connection, xcb_keycode_t keycode, uint32_t keysym) {
    const auto reply = adopt(xcb_get_keyboard_mapping_reply(
        connection.get(), xcb_get_keyboard_mapping(connection.get(), keycode, 1), nullptr));
    if (!reply)
        return false;
    const std::span keysyms(xcb_get_keyboard_mapping_keysyms(reply.get()),
                            static_cast<size_t>(xcb_get_keyboard_mapping_keysyms_length(reply.get())));
    return std::find(keysyms.begin(), keysyms.end(), keysym) != keysyms.end();
}

} // namespace

KeyGrabs::Masks KeyGrabs::readMasks() const {
    Masks masks;
    uint16_t numLock = 0;
    uint16_t scrollLock = 0;
    auto* const connection = m_connection.get();
    const auto reply = adopt(xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr));
    if (reply) {
        const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(reply.get());
        const int perModifier = reply->keycodes_per_modifier;
        for (int index = 0; index < 8 * perModifier; ++index) {
            const xcb_keycode_t keycode = keycodes[index];
            const auto mask = static_cast<uint16_t>(1U << static_cast<unsigned>(index / perModifier));
            if (keycode == 0 || mask == XCB_MOD_MASK_SHIFT || mask == XCB_MOD_MASK_LOCK || mask == XCB_MOD_MASK_CONTROL)
                continue;
            if (keycode == KEY_LEFTALT + x11KeycodeOffset)
                masks.option = mask;
            else if (keycode == KEY_LEFTMETA + x11KeycodeOffset)
                masks.command = mask;
            else if (producesKeysym(m_connection, keycode, XKB_KEY_Num_Lock))
                numLock = mask;
            else if (producesKeysym(m_connection, keycode, XKB_KEY_Scroll_Lock))
                scrollLock = mask;
        }
    }
    masks.locks = {0};
    for (const uint16_t lock : {static_cast<uint16_t>(XCB_MOD_MASK_LOCK), numLock, scrollLock}) {
        if (lock == 0)
            continue;
        const size_t count = masks.locks.size();
        for (size_t index = 0; index < count; ++index)
            masks.locks.push_back(masks.locks[index] | lock);
    }
    return masks;
}

bool KeyGrabs::grabOne(const KeyCombination& combination) {
    uint16_t modifiers = 0;
    if ((combination.modifiers & keyflag::shift) != 0)
        modifiers |= XCB_MOD_MASK_SHIFT;
    if ((combination.modifiers & keyflag::control) != 0)
        modifiers |= XCB_MOD_MASK_CONTROL;
    if ((combination.modifiers & keyflag::option) != 0)
        modifiers |= m_masks.option;
    if ((combination.modifiers & keyflag::command) != 0)
        modifiers |= m_masks.command;

    std::vector<std::pair<Grabbed, xcb_void_cookie_t>> asked;
    for (const uint16_t evdev : evdevCodesForVirtualKeyCode(combination.keyCode)) {
        if (evdev + x11KeycodeOffset > 255)
            continue;
        for (const uint16_t locks : m_masks.locks) {
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
    m_masks = readMasks();
    for (const KeyCombination& combination : m_wanted) {
        if (flagsOfModifierKey(combination.keyCode) == 0 && !grabOne(combination))
            m_unavailable.push_back(combination);
    }
    m_connection.flush();
}

void KeyGrabs::release() {
    for (const Grabbed& grab : m_grabbed)
        xcb_ungrab_key(m_connection.get(), grab.keycode, m_connection.root(), grab.modifiers);
    m_connection.flush();
    m_grabbed.clear();
    m_unavailable.clear();
}

void KeyGrabs::modifierMappingChanged() {
    if (readMasks() != m_masks)
        grab(std::move(m_wanted));
}

} // namespace quillo
