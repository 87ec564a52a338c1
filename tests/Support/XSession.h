#pragma once

#include "Platform/Linux/X11/XcbConnection.h"
#include "Support/PhysicalKeyboard.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>

namespace quillo::test {

/// A private X server with a window manager and, optionally, a session bus with accessibility. The environment of this
/// process points into it. Everything it started ends with it.
class XSession {
public:
    enum class Bus { none, session };

    /// Throws std::runtime_error when a part of it does not come up.
    explicit XSession(Bus bus = Bus::none);
    ~XSession();
    XSession(const XSession&) = delete;
    XSession& operator=(const XSession&) = delete;

    /// Starts a program in the session; it is killed at the latest when the session ends.
    std::unique_ptr<QProcess> launch(const QString& program, const QStringList& arguments);
    /// Runs a program to its end and returns what it printed.
    QByteArray run(const QString& program, const QStringList& arguments);
    /// A path below the session's own folder.
    [[nodiscard]] QString path(const QString& name) const { return m_directory.filePath(name); }

    /// Loads a keyboard layout and option as setxkbmap names them ("us", "us,ru"; "ctrl:nocaps") and puts that group
    /// into effect.
    void setLayout(const QString& layout, unsigned group = 0, const QString& option = {});

    void setCapsLock(bool on);
    [[nodiscard]] bool capsLock() const;
    /// The whole keyboard mapping, for comparison.
    [[nodiscard]] QByteArray keyboardMapping() const;
    [[nodiscard]] bool isKeyDown(uint16_t evdevCode) const;

    /// Presses or releases a key of the server's own keyboard, like a user, by its kernel key code.
    void physicalKey(uint16_t evdevCode, bool press);
    void tapPhysicalKey(uint16_t evdevCode);

    /// Waits for a window with this title and returns it when it has the focus; throws when it does not appear.
    xcb_window_t waitForActiveWindow(const QString& title);
    [[nodiscard]] QString activeTitle();
    void activate(xcb_window_t window);

    [[nodiscard]] xcb_connection_t* connection() const { return m_connection->get(); }
    [[nodiscard]] xcb_window_t root() const { return m_connection->root(); }
    xcb_atom_t atom(const char* name) const { return m_connection->atom(name); }

private:
    void startServer();
    void startBus();
    void startWindowManager();

    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_server;
    std::unique_ptr<QProcess> m_bus;
    std::unique_ptr<QProcess> m_windowManager;
    std::unique_ptr<XcbConnection> m_connection;
    std::unique_ptr<PhysicalKeyboard> m_keyboard;
};

/// The text field of tests/Support/TextField in the session, and what it has received.
class TextFieldProgram {
public:
    explicit TextFieldProgram(XSession& session, const QStringList& arguments = {});
    ~TextFieldProgram();
    TextFieldProgram(const TextFieldProgram&) = delete;
    TextFieldProgram& operator=(const TextFieldProgram&) = delete;

    /// The text as last reported.
    [[nodiscard]] QString text() const;
    /// Waits until the text equals `expected`.
    [[nodiscard]] bool waitForText(const QString& expected) const;
    [[nodiscard]] int64_t pid() const { return m_process->processId(); }
    [[nodiscard]] xcb_window_t window() const { return m_window; }

private:
    QString m_report;
    std::unique_ptr<QProcess> m_process;
    xcb_window_t m_window = 0;
};

} // namespace quillo::test
