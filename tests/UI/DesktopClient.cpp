#include "UI/DesktopClient.h"

#include <cstring>
#include <xcb/xtest.h>

namespace quillo::test {

DesktopClient::DesktopClient() : m_connection(xcb_connect(nullptr, nullptr)) {
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    m_root = screen->root;
    m_window = xcb_generate_id(m_connection);
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, m_root, 100, 100, 300, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    xcb_map_window(m_connection, m_window);
    xcb_flush(m_connection);
}

DesktopClient::~DesktopClient() { xcb_disconnect(m_connection); }

xcb_atom_t DesktopClient::atom(const char* name) const {
    auto* reply = xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
    const auto result = reply->atom;
    std::free(reply);
    return result;
}

std::vector<uint32_t> DesktopClient::property(xcb_window_t window, const char* name) const {
    auto* reply = xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 64), nullptr);
    std::vector<uint32_t> values;
    if (reply && reply->format == 32) {
        const auto* first = static_cast<const uint32_t*>(xcb_get_property_value(reply));
        values.assign(first, first + reply->value_len);
    }
    std::free(reply);
    return values;
}

xcb_window_t DesktopClient::activeWindow() const {
    const auto values = property(m_root, "_NET_ACTIVE_WINDOW");
    return values.empty() ? static_cast<xcb_window_t>(XCB_NONE) : values.front();
}

xcb_window_t DesktopClient::inputFocus() const {
    auto* reply = xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr);
    const auto focus = reply->focus;
    std::free(reply);
    return focus;
}

std::set<QString> DesktopClient::states(xcb_window_t window) const {
    std::set<QString> names;
    for (const auto state : property(window, "_NET_WM_STATE")) {
        auto* reply = xcb_get_atom_name_reply(m_connection, xcb_get_atom_name(m_connection, state), nullptr);
        names.insert(QString::fromLatin1(xcb_get_atom_name_name(reply), xcb_get_atom_name_name_length(reply)));
        std::free(reply);
    }
    return names;
}

QRect DesktopClient::geometry(xcb_window_t window) const {
    const std::unique_ptr<xcb_get_geometry_reply_t, decltype(&free)> size(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr), &free);
    const std::unique_ptr<xcb_translate_coordinates_reply_t, decltype(&free)> place(
        xcb_translate_coordinates_reply(m_connection, xcb_translate_coordinates(m_connection, window, m_root, 0, 0),
                                        nullptr),
        &free);
    return size && place ? QRect(place->dst_x, place->dst_y, size->width, size->height) : QRect();
}

void DesktopClient::movePointer(QPoint place) {
    xcb_test_fake_input(m_connection, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_root, static_cast<int16_t>(place.x()),
                        static_cast<int16_t>(place.y()), 0);
    xcb_flush(m_connection);
}

void DesktopClient::button(bool pressed) {
    xcb_test_fake_input(m_connection, pressed ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, m_root, 0,
                        0, 0);
    xcb_flush(m_connection);
}

} // namespace quillo::test
