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
#include <stdexcept>

#include <sys/prctl.h>

namespace quillo::test {

namespace {

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
    m_connection.reset();
    end(m_windowManager);
    end(m_bus);
    end(m_server);
}

void XSession::startServer() {
    m_server = start(u"Xvfb"_qs, u"-displayfd 1 -screen 0 1280x800x24 -nolisten tcp -noreset"_qs.split(u' '));
    qputenv("DISPLAY", ":" + readLine(*m_server, "Xvfb"));
    m_connection = XcbConnection::open(u"the session"_qs);
    if (!m_connection)
        throw std::runtime_error("cannot connect to Xvfb");
    adopt(xcb_xkb_use_extension_reply(connection(), xcb_xkb_use_extension(connection(), 1, 0), nullptr));
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
    if (!waitUntil([this] { return m_connection->item(root(), atom("_NET_SUPPORTING_WM_CHECK")) != 0; }))
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
    xcb_xkb_latch_lock_state(connection(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, static_cast<uint8_t>(group), 0, 0, 0);
    m_connection->roundTrip();
}

void XSession::setCapsLock(bool on) {
    xcb_xkb_latch_lock_state(connection(), XCB_XKB_ID_USE_CORE_KBD, XCB_MOD_MASK_LOCK, on ? XCB_MOD_MASK_LOCK : 0, 0, 0,
                             0, 0, 0);
    m_connection->roundTrip();
}

bool XSession::capsLock() const {
    const auto state =
        adopt(xcb_xkb_get_state_reply(connection(), xcb_xkb_get_state(connection(), XCB_XKB_ID_USE_CORE_KBD), nullptr));
    return state && (state->lockedMods & XCB_MOD_MASK_LOCK) != 0;
}

QByteArray XSession::keyboardMapping() const {
    const auto* setup = xcb_get_setup(connection());
    const auto reply = adopt(xcb_get_keyboard_mapping_reply(
        connection(),
        xcb_get_keyboard_mapping(connection(), setup->min_keycode,
                                 static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1)),
        nullptr));
    const auto size =
        static_cast<qsizetype>(sizeof(xcb_keysym_t)) * xcb_get_keyboard_mapping_keysyms_length(reply.get());
    return QByteArray(reinterpret_cast<const char*>(xcb_get_keyboard_mapping_keysyms(reply.get())), size) +
           QByteArray::number(reply->keysyms_per_keycode);
}

bool XSession::isKeyDown(uint16_t evdevCode) const {
    const auto down = m_keyboard->keysDown();
    return std::find(down.begin(), down.end(), evdevCode + 8) != down.end();
}

void XSession::physicalKey(uint16_t evdevCode, bool press) { m_keyboard->key(evdevCode + 8, press); }

void XSession::tapPhysicalKey(uint16_t evdevCode) {
    physicalKey(evdevCode, true);
    physicalKey(evdevCode, false);
}

QString XSession::activeTitle() {
    const auto active = m_connection->item(root(), atom("_NET_ACTIVE_WINDOW"));
    for (const xcb_atom_t name : {atom("_NET_WM_NAME"), static_cast<xcb_atom_t>(XCB_ATOM_WM_NAME)})
        if (const auto title = m_connection->property(active, name); active != 0 && title && !title->data.isEmpty())
            return QString::fromUtf8(title->data);
    return {};
}

xcb_window_t XSession::waitForActiveWindow(const QString& title) {
    xcb_window_t found = 0;
    QDeadlineTimer asked(std::chrono::milliseconds(500));
    const bool came = waitUntil(
        [&] {
            if (activeTitle() != title)
                return false;
            found = m_connection->item(root(), atom("_NET_ACTIVE_WINDOW"));
            // The window manager announces the window before it gives it the focus.
            const auto focus =
                adopt(xcb_get_input_focus_reply(connection(), xcb_get_input_focus(connection()), nullptr));
            if (focus && focus->focus > XCB_INPUT_FOCUS_POINTER_ROOT && focus->focus != root())
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
    xcb_send_event(connection(), 0, root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    m_connection->flush();
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
