#include "UI/DesktopClient.h"

#include <stdexcept>
#include <xcb/xtest.h>

namespace quillo::test {

DesktopClient::DesktopClient() : m_connection(XcbConnection::open(u"the test"_qs)) {
    if (!m_connection)
        throw std::runtime_error("no X server");
    m_window = xcb_generate_id(m_connection->get());
    xcb_create_window(m_connection->get(), XCB_COPY_FROM_PARENT, m_window, m_connection->root(), 100, 100, 300, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_map_window(m_connection->get(), m_window);
    m_connection->flush();
}

xcb_window_t DesktopClient::inputFocus() const {
    auto* const x = m_connection->get();
    return adopt(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr))->focus;
}

std::set<QString> DesktopClient::states(xcb_window_t window) const {
    std::set<QString> names;
    if (const auto states = m_connection->property(window, m_connection->atom("_NET_WM_STATE")))
        for (const auto state : states->items())
            names.insert(m_connection->atomName(state));
    return names;
}

QRect DesktopClient::geometry(xcb_window_t window) const {
    auto* const x = m_connection->get();
    const auto size = adopt(xcb_get_geometry_reply(x, xcb_get_geometry(x, window), nullptr));
    const auto place = adopt(
        xcb_translate_coordinates_reply(x, xcb_translate_coordinates(x, window, m_connection->root(), 0, 0), nullptr));
    return size && place ? QRect(place->dst_x, place->dst_y, size->width, size->height) : QRect();
}

void DesktopClient::movePointer(QPoint place) {
    xcb_test_fake_input(m_connection->get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_connection->root(),
                        static_cast<int16_t>(place.x()), static_cast<int16_t>(place.y()), 0);
    m_connection->flush();
}

void DesktopClient::button(bool pressed) {
    xcb_test_fake_input(m_connection->get(), pressed ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME,
                        m_connection->root(), 0, 0, 0);
    m_connection->flush();
}

} // namespace quillo::test
