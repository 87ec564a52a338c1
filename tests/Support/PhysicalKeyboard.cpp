#include "Support/PhysicalKeyboard.h"

#include <QByteArray>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace quillo::test {

namespace {

template <class T>
std::unique_ptr<T, decltype(&std::free)> adopt(T* memory) {
    return {memory, &std::free};
}

} // namespace

PhysicalKeyboard::PhysicalKeyboard(const QString& display)
    : m_connection(xcb_connect(display.toLatin1().constData(), nullptr)) {
    if (xcb_connection_has_error(m_connection) != 0)
        throw std::runtime_error("the display does not accept another client");
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    // The extension answers only clients that have said which version they speak.
    adopt(xcb_input_xi_query_version_reply(m_connection, xcb_input_xi_query_version(m_connection, 2, 2), nullptr));
    m_firstEvent = xcb_get_extension_data(m_connection, &xcb_input_id)->first_event;
    const auto reply = adopt(xcb_input_xi_query_device_reply(
        m_connection, xcb_input_xi_query_device(m_connection, XCB_INPUT_DEVICE_ALL), nullptr));
    for (auto infos = xcb_input_xi_query_device_infos_iterator(reply.get()); infos.rem > 0;
         xcb_input_xi_device_info_next(&infos)) {
        const auto name =
            QByteArray(xcb_input_xi_device_info_name(infos.data), xcb_input_xi_device_info_name_length(infos.data));
        if (infos.data->type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD && name.startsWith("Xvfb"))
            m_device = static_cast<uint8_t>(infos.data->deviceid);
    }
    if (m_device == 0)
        throw std::runtime_error("the X server has no keyboard");
}

PhysicalKeyboard::~PhysicalKeyboard() { xcb_disconnect(m_connection); }

void PhysicalKeyboard::key(int keycode, bool press) {
    // Device events of the first version of the extension: press is the second of them, release the third.
    const auto type =
        static_cast<uint8_t>(m_firstEvent + (press ? XCB_INPUT_DEVICE_KEY_PRESS : XCB_INPUT_DEVICE_KEY_RELEASE));
    const auto error = adopt(
        xcb_request_check(m_connection, xcb_test_fake_input_checked(m_connection, type, static_cast<uint8_t>(keycode),
                                                                    XCB_CURRENT_TIME, 0, 0, 0, m_device)));
    if (error)
        throw std::runtime_error("the X server refused a key");
}

void PhysicalKeyboard::programKey(int keycode, bool press) const {
    xcb_test_fake_input(m_connection, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, static_cast<uint8_t>(keycode),
                        XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    xcb_flush(m_connection);
}

bool PhysicalKeyboard::grabKeyboard() const {
    const auto grab = adopt(xcb_grab_keyboard_reply(
        m_connection,
        xcb_grab_keyboard(m_connection, 0, m_root, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr));
    return grab && grab->status == XCB_GRAB_STATUS_SUCCESS;
}

std::vector<int> PhysicalKeyboard::keysDown() const {
    std::vector<int> down;
    const auto reply = adopt(xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr));
    for (int keycode = 0; reply && keycode < 256; ++keycode) {
        if ((reply->keys[keycode / 8] >> (keycode % 8) & 1) != 0)
            down.push_back(keycode);
    }
    return down;
}

} // namespace quillo::test
