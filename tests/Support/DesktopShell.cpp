#include "Support/DesktopShell.h"

#include "Platform/Linux/X11/VirtualKeyCodes.h"

#include <set>
#include <stdexcept>

#include <linux/input-event-codes.h>
#include <xcb/xinput.h>

namespace quillo::test {

DesktopShell::DesktopShell() : m_connection(XcbConnection::open(u"desktop shell"_qs)) {
    if (!m_connection)
        throw std::runtime_error("the desktop shell found no X server");
    adopt(xcb_input_xi_query_version_reply(m_connection->get(), xcb_input_xi_query_version(m_connection->get(), 2, 2),
                                           nullptr));
    struct {
        xcb_input_event_mask_t head{XCB_INPUT_DEVICE_ALL_MASTER, 1};
        uint32_t mask = XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE;
    } const raw;
    xcb_input_xi_select_events(m_connection->get(), m_connection->root(), 1, &raw.head);
    m_connection->roundTrip();
}

int DesktopShell::launches() {
    static const std::set<uint32_t> menuKeys{KEY_LEFTMETA, KEY_RIGHTMETA, KEY_LEFTALT, KEY_RIGHTALT};
    m_connection->roundTrip();
    while (const auto event = m_connection->poll()) {
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event.get());
        const auto keycode = reinterpret_cast<const xcb_input_raw_key_press_event_t*>(event.get())->detail;
        if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS)
            m_lone = menuKeys.contains(keycode - x11KeycodeOffset) ? keycode : 0;
        else if (generic->event_type == XCB_INPUT_RAW_KEY_RELEASE && keycode == m_lone)
            ++m_launches;
    }
    return m_launches;
}

void DesktopShell::hold(uint16_t evdevCode, uint16_t modifiers) {
    xcb_grab_key(m_connection->get(), 0, m_connection->root(), modifiers,
                 static_cast<xcb_keycode_t>(evdevCode + x11KeycodeOffset), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    m_connection->roundTrip();
}

} // namespace quillo::test
