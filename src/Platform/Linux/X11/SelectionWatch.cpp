#include "Platform/Linux/X11/SelectionWatch.h"

#include <xcb/xfixes.h>

namespace quillo {

SelectionWatch::SelectionWatch(const char* selection)
    : m_connection(XcbConnection::open(QStringLiteral("changes of the clipboard"))) {
    if (!m_connection)
        return;
    auto* const connection = m_connection->get();
    const auto* extension = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (extension == nullptr || extension->present == 0)
        return;
    // The server refuses other requests of the extension until the version is negotiated.
    const auto version =
        adopt(xcb_xfixes_query_version_reply(connection, xcb_xfixes_query_version(connection, 1, 0), nullptr));
    if (!version)
        return;
    xcb_xfixes_select_selection_input(connection, m_connection->root(), m_connection->atom(selection),
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    m_connection->roundTrip();
    m_event = static_cast<uint8_t>(extension->first_event + XCB_XFIXES_SELECTION_NOTIFY);
}

std::optional<uint64_t> SelectionWatch::count() {
    if (m_event == 0 || m_connection->isBroken())
        return std::nullopt;
    m_connection->roundTrip();
    while (const auto event = m_connection->poll()) {
        if (eventType(*event) == m_event)
            ++m_count;
    }
    return m_connection->isBroken() ? std::nullopt : std::optional(m_count);
}

} // namespace quillo
