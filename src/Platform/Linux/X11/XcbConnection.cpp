#include "Platform/Linux/X11/XcbConnection.h"

#include "Core/Log.h"

#include <cstring>

#include <poll.h>
#include <xcb/res.h>

namespace quillo {

std::vector<uint32_t> XcbProperty::items() const {
    std::vector<uint32_t> values;
    if (format == 32) {
        values.resize(static_cast<size_t>(data.size()) / sizeof(uint32_t));
        std::memcpy(values.data(), data.constData(), values.size() * sizeof(uint32_t));
    }
    return values;
}

std::unique_ptr<XcbConnection> XcbConnection::open(const QString& purpose) {
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(connection) != 0) {
        const QString display = qEnvironmentVariable("DISPLAY");
        appLog(QStringLiteral("❌ No X server for %1 (%2)")
                   .arg(purpose, display.isEmpty() ? QStringLiteral("DISPLAY is not set")
                                                   : QStringLiteral("cannot connect to display ") + display),
               LogLevel::warn, QStringLiteral("X11"));
        xcb_disconnect(connection);
        return nullptr;
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (screenNumber-- > 0 && screens.rem > 1)
        xcb_screen_next(&screens);
    return std::unique_ptr<XcbConnection>(new XcbConnection(connection, screens.data->root));
}

XcbConnection::~XcbConnection() { xcb_disconnect(m_connection); }

void XcbConnection::roundTrip() const {
    adopt(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
}

xcb_atom_t XcbConnection::atom(const char* name) {
    const auto known = m_atoms.find(name);
    if (known != m_atoms.end())
        return known->second;
    const auto cookie = xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    const auto reply = adopt(xcb_intern_atom_reply(m_connection, cookie, nullptr));
    const xcb_atom_t value = reply ? reply->atom : XCB_ATOM_NONE;
    if (reply)
        m_atoms.emplace(name, value);
    return value;
}

QString XcbConnection::atomName(xcb_atom_t value) const {
    const auto reply = adopt(xcb_get_atom_name_reply(m_connection, xcb_get_atom_name(m_connection, value), nullptr));
    if (!reply)
        return {};
    return QString::fromLatin1(xcb_get_atom_name_name(reply.get()), xcb_get_atom_name_name_length(reply.get()));
}

std::optional<XcbProperty> XcbConnection::property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type) const {
    constexpr uint32_t mostWords = 1U << 16U;
    const auto cookie = xcb_get_property(m_connection, 0, window, name, type, 0, mostWords);
    const auto reply = adopt(xcb_get_property_reply(m_connection, cookie, nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE)
        return std::nullopt;
    return XcbProperty{reply->type, reply->format,
                       QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                  xcb_get_property_value_length(reply.get()))};
}

uint32_t XcbConnection::item(xcb_window_t window, xcb_atom_t name, xcb_atom_t type) const {
    const auto value = property(window, name, type);
    const auto items = value ? value->items() : std::vector<uint32_t>{};
    return items.empty() ? 0 : items.front();
}

int64_t XcbConnection::processOfWindow(xcb_window_t window) const {
    const auto* extension = xcb_get_extension_data(m_connection, &xcb_res_id);
    if (extension == nullptr || extension->present == 0)
        return 0;
    const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const auto reply =
        adopt(xcb_res_query_client_ids_reply(m_connection, xcb_res_query_client_ids(m_connection, 1, &spec), nullptr));
    if (!reply)
        return 0;
    for (auto ids = xcb_res_query_client_ids_ids_iterator(reply.get()); ids.rem > 0;
         xcb_res_client_id_value_next(&ids)) {
        if ((ids.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0 &&
            xcb_res_client_id_value_value_length(ids.data) > 0)
            return *xcb_res_client_id_value_value(ids.data);
    }
    return 0;
}

void XcbConnection::waitReadable(int milliseconds) const {
    pollfd wait{descriptor(), POLLIN, 0};
    ::poll(&wait, 1, milliseconds);
}

} // namespace quillo
