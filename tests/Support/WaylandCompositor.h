#pragma once

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

namespace quillo::test {

/// A private Wayland compositor without a screen. Everything it started ends with it.
class WaylandCompositor {
public:
    enum class Kind {
        sway,   ///< with data control
        weston, ///< without it
    };
    struct Options {
        Kind kind = Kind::sway;
        bool xwayland = false;
    };

    /// Throws std::runtime_error when it does not come up.
    WaylandCompositor() : WaylandCompositor(Options{}) {}
    explicit WaylandCompositor(Options options);
    ~WaylandCompositor();
    WaylandCompositor(const WaylandCompositor&) = delete;
    WaylandCompositor& operator=(const WaylandCompositor&) = delete;

    /// For WAYLAND_DISPLAY: a path.
    [[nodiscard]] QString socket() const { return m_socket; }
    /// For DISPLAY; empty without an X server.
    [[nodiscard]] QString display() const { return m_display; }
    /// For SWAYSOCK.
    [[nodiscard]] QString controlSocket() const { return m_controlSocket; }
    [[nodiscard]] QString log() const;
    /// A file in the compositor's own folder, where the commands it runs may write.
    [[nodiscard]] QString path(const QString& name) const { return m_folder.filePath(name); }

    /// Ends it at once, as a crash would.
    void kill();

private:
    void start(const QStringList& command);

    QTemporaryDir m_folder;
    QProcess m_process;
    QString m_socket;
    QString m_display;
    QString m_controlSocket;
};

} // namespace quillo::test
