#include "Support/WaylandCompositor.h"

#include "Support/Async.h"

#include <QFile>
#include <QRegularExpression>

#include <stdexcept>

#include <unistd.h>

namespace quillo::test {

namespace {

constexpr unsigned nobody = 65534;

QByteArray readAll(const QString& file) {
    QFile source(file);
    return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
}

} // namespace

WaylandCompositor::WaylandCompositor(Options options) {
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const auto* name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "SWAYSOCK", "DBUS_SESSION_BUS_ADDRESS"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_folder.path());
    environment.insert(QStringLiteral("HOME"), m_folder.path());
    environment.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    environment.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    environment.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    m_process.setProcessEnvironment(environment);
    const auto logFile = path(QStringLiteral("log"));
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(logFile);

    if (options.kind == Kind::weston) {
        QStringList command{QStringLiteral("weston"), QStringLiteral("--backend=headless-backend.so"),
                            QStringLiteral("--no-config"), QStringLiteral("--socket=weston")};
        start(command);
        m_socket = path(QStringLiteral("weston"));
        if (!waitUntil([this] { return QFile::exists(m_socket) || m_process.state() == QProcess::NotRunning; }) ||
            m_process.state() == QProcess::NotRunning)
            throw std::runtime_error("weston did not start: " + log().toStdString());
        return;
    }

    // It prints its names when it is ready.
    const auto told = path(QStringLiteral("environment"));
    QFile configuration(path(QStringLiteral("config")));
    if (!configuration.open(QIODevice::WriteOnly))
        throw std::runtime_error("cannot write the compositor's configuration");
    configuration.write(options.xwayland ? "xwayland force\n" : "xwayland disable\n");
    configuration.write("output * resolution 1280x800 background #35506b solid_color\n");
    configuration.write("exec env > environment.new && mv environment.new environment\n");
    configuration.close();
    start({QStringLiteral("sway"), QStringLiteral("--config"), configuration.fileName()});
    if (!waitUntil([&] { return QFile::exists(told) || m_process.state() == QProcess::NotRunning; }) ||
        !QFile::exists(told))
        throw std::runtime_error("sway did not start: " + log().toStdString());
    for (const auto& line : readAll(told).split('\n')) {
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
    QStringList arguments{QStringLiteral("--pdeathsig"), QStringLiteral("KILL")};
    if (::geteuid() == 0) {
        if (::chown(m_folder.path().toLocal8Bit().constData(), nobody, nobody) != 0)
            throw std::runtime_error("cannot give the compositor its folder");
        arguments << QStringLiteral("--reuid=%1").arg(nobody) << QStringLiteral("--regid=%1").arg(nobody)
                  << QStringLiteral("--clear-groups");
    }
    m_process.start(QStringLiteral("setpriv"), arguments + command);
    if (!m_process.waitForStarted())
        throw std::runtime_error("setpriv (package util-linux) could not be started");
}

QString WaylandCompositor::log() const { return QString::fromUtf8(readAll(path(QStringLiteral("log")))); }

void WaylandCompositor::kill() {
    m_process.kill();
    m_process.waitForFinished();
}

} // namespace quillo::test
