#include "Platform/Linux/X11/X11Applications.h"

#include "Platform/Linux/X11/DesktopEntries.h"
#include "Platform/Linux/X11/TerminalClasses.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <QFileInfo>
#include <QLocale>
#include <QStandardPaths>
#include <QSysInfo>

#include <algorithm>
#include <chrono>
#include <future>

namespace quillo {

namespace {

class X11Applications final : public Applications {
public:
    explicit X11Applications(std::unique_ptr<XcbConnection> connection) : m_connection(std::move(connection)) {
        // These events only wake us while we wait for a new active window; see `activeWindow`.
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(m_connection->get(), m_connection->root(), XCB_CW_EVENT_MASK, &mask);
        m_reading = std::async(std::launch::async, [] {
            return DesktopEntries::read(QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation),
                                        QLocale().name());
        });
    }

    [[nodiscard]] bool isAvailable() const override { return !m_connection->isBroken(); }

    [[nodiscard]] std::optional<RunningApplication> frontmost() override {
        const xcb_window_t window = activeWindow();
        return window == XCB_WINDOW_NONE ? std::nullopt : std::optional(describe(window));
    }

    bool activate(const RunningApplication& application) override {
        auto window = static_cast<xcb_window_t>(application.window);
        if (window == XCB_WINDOW_NONE || !exists(window))
            window = windowOf(application.pid);
        if (window == XCB_WINDOW_NONE)
            return false;
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = m_connection->atom("_NET_ACTIVE_WINDOW");
        // Act as a pager: a window manager may refuse a request of an application as focus stealing.
        message.data.data32[0] = 2;
        message.data.data32[1] = m_connection->item(window, m_connection->atom("_NET_WM_USER_TIME"));
        xcb_send_event(m_connection->get(), 0, m_connection->root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&message));
        m_connection->flush();
        waitUntilActive(window);
        return !m_connection->isBroken();
    }

private:
    /// The injection that follows asks which application is in front, so the window manager must have answered. One
    /// that refuses costs 100 ms.
    void waitUntilActive(xcb_window_t window) {
        using std::chrono::steady_clock;
        const auto deadline = steady_clock::now() + std::chrono::milliseconds(100);
        const xcb_atom_t name = m_connection->atom("_NET_ACTIVE_WINDOW");
        while (!m_connection->isBroken() && m_connection->item(m_connection->root(), name) != window) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now());
            if (left.count() <= 0)
                return;
            while (m_connection->poll()) {
            }
            m_connection->waitReadable(static_cast<int>(std::min<int64_t>(left.count(), 5)));
        }
    }

    /// During every switch between windows no window is active for half a millisecond, or several on a busy machine.
    xcb_window_t activeWindow() {
        using std::chrono::steady_clock;
        const auto deadline = steady_clock::now() + std::chrono::milliseconds(15);
        const xcb_atom_t name = m_connection->atom("_NET_ACTIVE_WINDOW");
        for (;;) {
            while (m_connection->poll()) {
            }
            const xcb_window_t window = m_connection->item(m_connection->root(), name);
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now());
            if (window != XCB_WINDOW_NONE || left.count() <= 0 || m_connection->isBroken())
                return window;
            m_connection->waitReadable(static_cast<int>(left.count()));
        }
    }

    RunningApplication describe(xcb_window_t window) {
        RunningApplication application;
        application.window = window;
        application.pid = processOf(window);
        const QString windowClass = classOf(window);
        const QString program =
            application.pid > 0
                ? QFileInfo(QStringLiteral("/proc/%1/exe").arg(application.pid)).symLinkTarget().section(u'/', -1)
                : QString();
        application.name = !windowClass.isEmpty() ? windowClass : program;
        application.bundleIdentifier = application.name;
        application.isTerminal = isTerminalClass(windowClass);
        if (const auto* entries = desktopEntries()) {
            if (const auto entry = entries->find(windowClass, program)) {
                application.name = entry->name;
                application.bundleIdentifier = entry->id;
                application.isTerminal = application.isTerminal || entry->isTerminal;
            }
        }
        if (application.name.isEmpty())
            application.name = titleOf(window);
        return application;
    }

    /// Null until the entries have been read.
    const DesktopEntries* desktopEntries() {
        if (!m_entries && m_reading.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
            m_entries = m_reading.get();
        return m_entries ? &*m_entries : nullptr;
    }

    int64_t processOf(xcb_window_t window) {
        // The server knows the process of a local client; what the window says is its number inside a sandbox.
        if (const int64_t process = m_connection->processOfWindow(window); process != 0)
            return process;
        // The process id of a remote window belongs to another machine.
        const auto machine = m_connection->property(window, XCB_ATOM_WM_CLIENT_MACHINE);
        if (machine && QString::fromLocal8Bit(machine->data) != QSysInfo::machineHostName())
            return 0;
        return m_connection->item(window, m_connection->atom("_NET_WM_PID"));
    }

    QString classOf(xcb_window_t window) {
        const auto value = m_connection->property(window, XCB_ATOM_WM_CLASS);
        if (!value)
            return {};
        // Two null-terminated strings: instance and class.
        const auto parts = value->data.split('\0');
        return QString::fromLatin1(parts.value(1).isEmpty() ? parts.value(0) : parts.value(1));
    }

    QString titleOf(xcb_window_t window) {
        const auto title = m_connection->property(window, m_connection->atom("_NET_WM_NAME"));
        return title ? QString::fromUtf8(title->data) : QString();
    }

    [[nodiscard]] bool exists(xcb_window_t window) const {
        const auto cookie = xcb_get_window_attributes(m_connection->get(), window);
        return adopt(xcb_get_window_attributes_reply(m_connection->get(), cookie, nullptr)) != nullptr;
    }

    /// The topmost window of a process.
    xcb_window_t windowOf(int64_t pid) {
        const auto stacking =
            m_connection->property(m_connection->root(), m_connection->atom("_NET_CLIENT_LIST_STACKING"));
        if (pid <= 0 || !stacking)
            return XCB_WINDOW_NONE;
        const auto windows = stacking->items();
        const auto found = std::find_if(windows.rbegin(), windows.rend(),
                                        [&](xcb_window_t window) { return processOf(window) == pid; });
        return found == windows.rend() ? static_cast<xcb_window_t>(XCB_WINDOW_NONE) : *found;
    }

    std::unique_ptr<XcbConnection> m_connection;
    std::future<DesktopEntries> m_reading;
    std::optional<DesktopEntries> m_entries;
};

} // namespace

std::unique_ptr<Applications> createX11Applications() {
    auto connection = XcbConnection::open(QStringLiteral("windows"));
    if (!connection)
        return nullptr;
    return std::make_unique<X11Applications>(std::move(connection));
}

} // namespace quillo
