#include "Platform/Linux/X11/TargetSync.h"

#include <algorithm>
#include <thread>

namespace quillo {

using SteadyClock = std::chrono::steady_clock;

TargetSync::TargetSync(XcbConnection& connection) : m_connection(connection) {}

void TargetSync::listen(bool on) {
    // GTK sends its answer to clients that watch the root window's children, Qt to those that watch the root window
    // itself.
    const uint32_t mask =
        on ? XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY : XCB_EVENT_MASK_NO_EVENT;
    xcb_change_window_attributes(m_connection.get(), m_connection.root(), XCB_CW_EVENT_MASK, &mask);
}

xcb_window_t TargetSync::activeWindow() {
    return m_connection.item(m_connection.root(), m_connection.atom("_NET_ACTIVE_WINDOW"));
}

bool TargetSync::canTell() { return answersPing(activeWindow()); }

bool TargetSync::answersPing(xcb_window_t window) {
    if (window == XCB_WINDOW_NONE)
        return false;
    const auto protocols = m_connection.property(window, m_connection.atom("WM_PROTOCOLS"), XCB_ATOM_ATOM);
    if (!protocols)
        return false;
    const auto atoms = protocols->items();
    return std::find(atoms.begin(), atoms.end(), m_connection.atom("_NET_WM_PING")) != atoms.end();
}

void TargetSync::wait(std::chrono::milliseconds unanswered, std::chrono::milliseconds patience) {
    m_connection.roundTrip();
    const xcb_window_t window = activeWindow();
    if (!answersPing(window)) {
        std::this_thread::sleep_for(unanswered);
        return;
    }
    xcb_client_message_event_t ping{};
    ping.response_type = XCB_CLIENT_MESSAGE;
    ping.format = 32;
    ping.window = window;
    ping.type = m_connection.atom("WM_PROTOCOLS");
    ping.data.data32[0] = m_connection.atom("_NET_WM_PING");
    // Leave the timestamp zero, so that the client does not treat this as a user event. It returns all five items
    // unchanged.
    ping.data.data32[1] = XCB_CURRENT_TIME;
    ping.data.data32[2] = window;
    ping.data.data32[3] = ++m_serial;
    listen(true);
    xcb_send_event(m_connection.get(), 0, window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&ping));
    m_connection.flush();

    const auto deadline = SteadyClock::now() + patience;
    awaitAnswer(ping, deadline);
    listen(false);
    m_connection.roundTrip();
    while (m_connection.poll()) {
    }
}

void TargetSync::awaitAnswer(const xcb_client_message_event_t& ping, SteadyClock::time_point deadline) {
    while (!m_connection.isBroken()) {
        while (const auto event = m_connection.poll()) {
            const auto* answer = reinterpret_cast<const xcb_client_message_event_t*>(event.get());
            if (eventType(*event) == XCB_CLIENT_MESSAGE && answer->type == ping.type &&
                answer->data.data32[0] == ping.data.data32[0] && answer->data.data32[3] == ping.data.data32[3])
                return;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
        if (left.count() <= 0)
            return;
        m_connection.waitReadable(static_cast<int>(left.count()));
    }
}

} // namespace quillo
