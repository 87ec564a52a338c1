#include "Support/XSession.h"

#include "Platform/Linux/X11/XcbXkb.h"
#include "Support/Async.h"
#include "Support/Files.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <sys/prctl.h>

namespace quillo::test {

namespace {

template <class T>
std::unique_ptr<T, decltype(&std::free)> adopt(T* memory) {
    return {memory, &std::free};
}

std::unique_ptr<QProcess> start(const QString& program, const QStringList& arguments) {
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::SeparateChannels);
    process->setStandardErrorFile(QProcess::nullDevice());
    // End the programs even if the test crashes.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process->start(program, arguments);
    if (!process->waitForStarted())
        throw std::runtime_error("cannot start " + program.toStdString());
    return process;
}

void end(std::unique_ptr<QProcess>& process) {
    if (!process)
        return;
    process->terminate();
    if (!process->waitForFinished(3000)) {
        process->kill();
        process->waitForFinished();
    }
    process.reset();
}

QByteArray readLine(QProcess& process, const char* what) {
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(15000))
            throw std::runtime_error(std::string("no answer from ") + what);
    }
    return process.readLine().trimmed();
}

} // namespace

XSession::XSession(Bus bus) {
    // The services a bus starts inherit the environment, so the folders come first.
    QDir(m_directory.path()).mkdir(u"home"_qs);
    QDir(m_directory.path()).mkdir(u"run"_qs);
    QFile::setPermissions(path(u"run"_qs), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("HOME", path(u"home"_qs).toUtf8());
    qputenv("XDG_RUNTIME_DIR", path(u"run"_qs).toUtf8());
    qputenv("LC_ALL", "C.UTF-8");
    qputenv("QT_QPA_PLATFORM", "xcb");
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "WAYLAND_DISPLAY", "XMODIFIERS",
                             "GTK_IM_MODULE", "QT_IM_MODULE", "DBUS_SESSION_BUS_ADDRESS"})
        qunsetenv(name);
    startServer();
    if (bus == Bus::session)
        startBus();
    startWindowManager();
    m_keyboard = std::make_unique<PhysicalKeyboard>(qEnvironmentVariable("DISPLAY"));
}

XSession::~XSession() {
    m_keyboard.reset();
    if (m_connection != nullptr)
        xcb_disconnect(m_connection);
    end(m_windowManager);
    end(m_bus);
    end(m_server);
}

void XSession::startServer() {
    m_server = start(u"Xvfb"_qs, u"-displayfd 1 -screen 0 1280x800x24 -nolisten tcp -noreset"_qs.split(u' '));
    qputenv("DISPLAY", ":" + readLine(*m_server, "Xvfb"));
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection) != 0)
        throw std::runtime_error("cannot connect to Xvfb");
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    xcb_xkb_use_extension_reply_t* used =
        xcb_xkb_use_extension_reply(m_connection, xcb_xkb_use_extension(m_connection, 1, 0), nullptr);
    std::free(used); // NOLINT
}

void XSession::startBus() {
    m_bus = start(u"dbus-daemon"_qs, {u"--session"_qs, u"--nofork"_qs, u"--print-address=1"_qs});
    qputenv("DBUS_SESSION_BUS_ADDRESS", readLine(*m_bus, "dbus-daemon"));
}

void XSession::startWindowManager() {
    // The default configuration grabs keys.
    writeFile(path(u"openbox.xml"_qs), R"(<?xml version="1.0"?><openbox_config xmlns="http://openbox.org/3.4/rc">
<focus><focusNew>yes</focusNew></focus><keyboard></keyboard></openbox_config>)");
    m_windowManager = start(u"openbox"_qs, {u"--config-file"_qs, path(u"openbox.xml"_qs)});
    if (!waitUntil([this] { return !property(m_root, "_NET_SUPPORTING_WM_CHECK").empty(); }))
        throw std::runtime_error("openbox did not start");
}

std::unique_ptr<QProcess> XSession::launch(const QString& program, const QStringList& arguments) {
    return start(program, arguments);
}

QByteArray XSession::run(const QString& program, const QStringList& arguments) {
    const auto process = start(program, arguments);
    if (!process->waitForFinished(15000))
        throw std::runtime_error(program.toStdString() + " did not end");
    return process->readAllStandardOutput();
}

void XSession::setLayout(const QString& layout, unsigned group, const QString& option) {
    QStringList arguments{u"-layout"_qs, layout, u"-option"_qs, QString()};
    if (!option.isEmpty())
        arguments << u"-option"_qs << option;
    run(u"setxkbmap"_qs, arguments);
    xcb_xkb_latch_lock_state(m_connection, XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, static_cast<uint8_t>(group), 0, 0, 0);
    (void)isKeyDown(0);
}

void XSession::setCapsLock(bool on) {
    xcb_xkb_latch_lock_state(m_connection, XCB_XKB_ID_USE_CORE_KBD, XCB_MOD_MASK_LOCK, on ? XCB_MOD_MASK_LOCK : 0, 0, 0,
                             0, 0, 0);
    (void)isKeyDown(0);
}

bool XSession::capsLock() const {
    const auto state =
        adopt(xcb_xkb_get_state_reply(m_connection, xcb_xkb_get_state(m_connection, XCB_XKB_ID_USE_CORE_KBD), nullptr));
    return state && (state->lockedMods & XCB_MOD_MASK_LOCK) != 0;
}

QByteArray XSession::keyboardMapping() const {
    const auto* setup = xcb_get_setup(m_connection);
    const auto reply = adopt(xcb_get_keyboard_mapping_reply(
        m_connection,
        xcb_get_keyboard_mapping(m_connection, setup->min_keycode,
                                 static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1)),
        nullptr));
    const auto size =
        static_cast<qsizetype>(sizeof(xcb_keysym_t)) * xcb_get_keyboard_mapping_keysyms_length(reply.get());
    return QByteArray(reinterpret_cast<const char*>(xcb_get_keyboard_mapping_keysyms(reply.get())), size) +
           QByteArray::number(reply->keysyms_per_keycode);
}

bool XSession::isKeyDown(uint16_t evdevCode) const {
    const auto reply = adopt(xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr));
    const unsigned keycode = evdevCode + 8U;
    return reply && (reply->keys[keycode / 8] >> (keycode % 8) & 1) != 0;
}

void XSession::physicalKey(uint16_t evdevCode, bool press) { m_keyboard->key(evdevCode + 8, press); }

void XSession::tapPhysicalKey(uint16_t evdevCode) {
    physicalKey(evdevCode, true);
    physicalKey(evdevCode, false);
}

xcb_atom_t XSession::atom(const char* name) const {
    const auto reply = adopt(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return reply->atom;
}

std::vector<uint32_t> XSession::property(xcb_window_t window, const char* name) const {
    const auto reply = adopt(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, atom(name), XCB_ATOM_ANY, 0, 1024), nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto* items = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
    return {items, items + reply->value_len};
}

QString XSession::activeTitle() {
    const auto active = property(m_root, "_NET_ACTIVE_WINDOW");
    if (active.empty() || active.front() == 0)
        return {};
    for (const xcb_atom_t name : {atom("_NET_WM_NAME"), static_cast<xcb_atom_t>(XCB_ATOM_WM_NAME)}) {
        const auto reply = adopt(xcb_get_property_reply(
            m_connection, xcb_get_property(m_connection, 0, active.front(), name, XCB_ATOM_ANY, 0, 1024), nullptr));
        if (reply && reply->value_len > 0)
            return QString::fromUtf8(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                     xcb_get_property_value_length(reply.get()));
    }
    return {};
}

xcb_window_t XSession::waitForActiveWindow(const QString& title) {
    xcb_window_t found = 0;
    QDeadlineTimer asked(std::chrono::milliseconds(500));
    const bool came = waitUntil(
        [&] {
            if (activeTitle() != title)
                return false;
            found = property(m_root, "_NET_ACTIVE_WINDOW").front();
            // The window manager announces the window before it gives it the focus.
            const auto focus =
                adopt(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
            if (focus && focus->focus > XCB_INPUT_FOCUS_POINTER_ROOT && focus->focus != m_root)
                return true;
            // The window manager may have tried before the window was visible; a repeated request makes it try again.
            if (asked.hasExpired()) {
                activate(found);
                asked = QDeadlineTimer(std::chrono::milliseconds(500));
            }
            return false;
        },
        std::chrono::seconds(20));
    if (!came)
        throw std::runtime_error("no active window \"" + title.toStdString() + "\" but \"" +
                                 activeTitle().toStdString() + "\"");
    return found;
}

void XSession::activate(xcb_window_t window) {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = atom("_NET_ACTIVE_WINDOW");
    message.data.data32[0] = 2;
    xcb_send_event(m_connection, 0, m_root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(m_connection);
}

TextFieldProgram::TextFieldProgram(XSession& session, const QStringList& arguments)
    : m_report(session.path(QUuid::createUuid().toString(QUuid::WithoutBraces))) {
    const QString title = u"Notes "_qs + m_report.right(6);
    m_process = session.launch(QStringLiteral(QUILLO_TEXT_FIELD),
                               QStringList{u"--report"_qs, m_report, u"--title"_qs, title} + arguments);
    m_window = session.waitForActiveWindow(title);
    if (!waitUntil([this] { return QFile(m_report).size() > 0; }))
        throw std::runtime_error("the text field did not get the focus");
}

TextFieldProgram::~TextFieldProgram() { end(m_process); }

QString TextFieldProgram::text() const {
    // The last line is complete only when a line end follows it.
    const auto lines = contentOf(m_report).split('\n');
    const auto line = lines.size() < 2 ? QByteArray() : lines.at(lines.size() - 2);
    return QJsonDocument::fromJson(line).object().value(u"text"_qs).toString();
}

bool TextFieldProgram::waitForText(const QString& expected) const {
    return waitUntil([&] { return text() == expected; });
}

} // namespace quillo::test
