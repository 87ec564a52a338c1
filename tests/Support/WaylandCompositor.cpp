#include "Support/WaylandCompositor.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <stdexcept>

#include <unistd.h>

namespace quillo::test {

namespace {

constexpr unsigned nobody = 65534;

} // namespace

WaylandCompositor::WaylandCompositor(Options options) {
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const auto* name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "SWAYSOCK", "DBUS_SESSION_BUS_ADDRESS"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(u"XDG_RUNTIME_DIR"_qs, m_folder.path());
    environment.insert(u"HOME"_qs, m_folder.path());
    environment.insert(u"WLR_BACKENDS"_qs, u"headless"_qs);
    environment.insert(u"WLR_RENDERER"_qs, u"pixman"_qs);
    environment.insert(u"WLR_LIBINPUT_NO_DEVICES"_qs, u"1"_qs);
    m_process.setProcessEnvironment(environment);
    const auto logFile = path(u"log"_qs);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(logFile);

    if (options.kind == Kind::weston) {
        start(u"weston --backend=headless-backend.so --no-config --socket=weston"_qs.split(u' '));
        m_socket = path(u"weston"_qs);
        if (!waitUntil([this] { return QFile::exists(m_socket) || m_process.state() == QProcess::NotRunning; }) ||
            m_process.state() == QProcess::NotRunning)
            throw std::runtime_error("weston did not start: " + log().toStdString());
        return;
    }

    // It prints its names when it is ready.
    const auto told = path(u"environment"_qs);
    writeFile(path(u"config"_qs), QByteArray(options.xwayland ? "xwayland force\n" : "xwayland disable\n") +
                                      "output * resolution 1280x800 background #35506b solid_color\n"
                                      "exec env > environment.new && mv environment.new environment\n");
    start({u"sway"_qs, u"--config"_qs, path(u"config"_qs)});
    if (!waitUntil([&] { return QFile::exists(told) || m_process.state() == QProcess::NotRunning; }) ||
        !QFile::exists(told))
        throw std::runtime_error("sway did not start: " + log().toStdString());
    for (const auto& line : contentOf(told).split('\n')) {
        const auto value = QString::fromUtf8(line.mid(line.indexOf('=') + 1));
        if (line.startsWith("WAYLAND_DISPLAY="))
            m_socket = path(value);
        else if (line.startsWith("DISPLAY="))
            m_display = value;
        else if (line.startsWith("SWAYSOCK="))
            m_controlSocket = value;
    }
}

WaylandCompositor::~WaylandCompositor() {
    m_process.terminate();
    if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(3000))
        kill();
}

void WaylandCompositor::start(const QStringList& command) {
    m_process.setWorkingDirectory(m_folder.path());
    // End the program even if the test crashes. Tests in containers run as root, which these programs refuse.
    QStringList arguments{u"--pdeathsig"_qs, u"KILL"_qs};
    if (::geteuid() == 0) {
        if (::chown(m_folder.path().toLocal8Bit().constData(), nobody, nobody) != 0)
            throw std::runtime_error("cannot give the compositor its folder");
        arguments << u"--reuid=%1"_qs.arg(nobody) << u"--regid=%1"_qs.arg(nobody) << u"--clear-groups"_qs;
    }
    m_process.start(u"setpriv"_qs, arguments + command);
    if (!m_process.waitForStarted())
        throw std::runtime_error("setpriv (package util-linux) could not be started");
}

QString WaylandCompositor::log() const { return QString::fromUtf8(contentOf(path(u"log"_qs))); }

void WaylandCompositor::kill() {
    m_process.kill();
    m_process.waitForFinished();
}

} // namespace quillo::test
