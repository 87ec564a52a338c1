#include "App/System/LocalServer.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Localization/LocalizationManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace quillo {

namespace {

using namespace std::chrono_literals;

/// The descriptor of the inherited socket in the server's process.
constexpr int inheritedDescriptor = 3;
constexpr int pendingConnections = 128;
constexpr Clock::Duration firstRestartDelay = 250ms;
constexpr Clock::Duration longestRestartDelay = 30s;
/// A server that ran this long had started successfully, so its end counts as a new failure.
constexpr Clock::Duration stableAfter = 30s;
/// The server's exit status when another one has locked its data folder.
constexpr int folderInUse = 3;
/// With the delays above these take half a minute: the server of an earlier start has finished by then.
constexpr int attemptsOnUsedFolder = 6;
/// How often to look whether the user's own server still runs.
constexpr Clock::Duration lookInterval = 3s;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[LocalServer] ") + message, level, QStringLiteral("LocalServer"));
}

/// The loopback address of a server that the user runs on the folder of this one, which has a single server at a time;
/// empty when there is none. One that another start of the application left is about to end, and is none.
QString hostOfRunningServer() {
    if (qEnvironmentVariable("QUILLO_SERVER_OPTIONS").contains(QLatin1String("--data")))
        return {};
    QFile lock(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
               QStringLiteral("/quillo/server/server.lock"));
    if (!lock.open(QIODevice::ReadOnly) || ::flock(lock.handle(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK)
        return {};
    // "PROCESS ADDRESS:PORT", and a third word when we cannot use it: it belongs to an application, or its
    // certificate is for another name than this address.
    const auto words = QString::fromLatin1(lock.readLine()).simplified().split(QLatin1Char(' '));
    if (words.size() != 2)
        return {};
    // A port on another address is not the server's on this one: another user could listen there.
    const auto address = words[1].section(QLatin1Char(':'), 0, -2);
    if (address != u"127.0.0.1" && address != u"0.0.0.0" && address != u"[::]")
        return {};
    return QStringLiteral("127.0.0.1:") + words[1].section(QLatin1Char(':'), -1);
}

/// `port` 0 means any free one, and becomes the one that was bound.
int bindLoopback(quint16& port) {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    // The port of a server that ended may still have connections that wait for their last packets.
    const int reuse = port == 0 ? 0 : 1;
    socklen_t length = sizeof address;
    if (descriptor < 0 || ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0 ||
        ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(descriptor, pendingConnections) != 0 ||
        ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        const int error = errno;
        if (descriptor >= 0)
            ::close(descriptor);
        throw std::system_error(error, std::generic_category(), "no loopback port for the local server");
    }
    port = ntohs(address.sin_port);
    return descriptor;
}

} // namespace

LocalServer::LocalServer(Clock& clock) : m_clock(clock), m_host(hostOfRunningServer()) {
    if (!m_host.isEmpty())
        return;
    quint16 port = 0;
    m_socket = bindLoopback(port);
    m_host = QStringLiteral("127.0.0.1:%1").arg(port);
}

LocalServer::~LocalServer() {
    stop();
    if (m_socket >= 0)
        ::close(m_socket);
}

QString LocalServer::findProgram() {
    const auto name = QStringLiteral("quillo-server");
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
    return QFileInfo(beside).isExecutable() ? beside : QStandardPaths::findExecutable(name);
}

void LocalServer::start(const QString& program, const QString& logFile) {
    m_program = program;
    m_logFile = logFile;
    m_wanted = true;
    if (m_socket >= 0)
        return launch();
    log(QStringLiteral("✅ Using the server that runs already at %1").arg(m_host));
    lookLater();
}

void LocalServer::lookLater() {
    m_restart = m_clock.callLater(lookInterval, [this] {
        const auto running = hostOfRunningServer();
        if (!running.isEmpty())
            follow(running);
        const bool isMissing = running.isEmpty();
        // Twice, because it may be restarting.
        if (isMissing && m_wasMissing && replaceEndedServer())
            return launch();
        m_wasMissing = isMissing;
        lookLater();
    });
}

void LocalServer::follow(const QString& running) {
    if (running == m_host)
        return;
    log(QStringLiteral("🔁 The server that ran at %1 runs at %2 now").arg(m_host, running));
    m_host = running;
}

bool LocalServer::replaceEndedServer() {
    // The clients keep the address, and the folder has the same certificates and accounts.
    auto port = static_cast<quint16>(m_host.section(QLatin1Char(':'), -1).toUInt());
    try {
        m_socket = bindLoopback(port);
    } catch (const std::system_error&) {
        return false; // it is just restarting, or its last connections are still open
    }
    log(QStringLiteral("⚠️ The server that ran at %1 has ended").arg(m_host), LogLevel::warn);
    return true;
}

void LocalServer::launch() {
    m_process = std::make_unique<QProcess>();
    m_process->setChildProcessModifier([socket = m_socket] {
        // Runs between fork and exec: plain system calls only.
        if (socket == inheritedDescriptor)
            ::fcntl(socket, F_SETFD, 0);
        else
            ::dup2(socket, inheritedDescriptor);
    });
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(QProcess::nullDevice());
    // Start the server even without its log.
    const auto logFolder = QFileInfo(m_logFile).path();
    const bool canLog = QDir().mkpath(logFolder) && QFileInfo(logFolder).isWritable();
    m_process->setStandardErrorFile(canLog ? m_logFile : QProcess::nullDevice(), QIODevice::Append);
    connect(m_process.get(), &QProcess::finished, this, &LocalServer::handleFinished);
    connect(m_process.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            log(QStringLiteral("❌ %1 could not be started: %2").arg(m_program, m_process->errorString()),
                LogLevel::error);
            handleFinished(-1, QProcess::CrashExit);
        }
    });
    auto arguments = QStringList{QStringLiteral("--listen"), QStringLiteral("fd:%1").arg(inheritedDescriptor),
                                 QStringLiteral("--exit-with-parent"), QStringLiteral("--own-user-only")};
    arguments += QProcess::splitCommand(qEnvironmentVariable("QUILLO_SERVER_OPTIONS"));
    m_startedAt = m_clock.now();
    m_process->start(m_program, arguments);
    log(QStringLiteral("🚀 Starting %1 on %2").arg(m_program, m_host));
}

void LocalServer::handleFinished(int exitCode, QProcess::ExitStatus status) {
    if (!m_wanted)
        return;
    if (m_clock.now() - m_startedAt > stableAfter)
        m_failures = 0;
    if (status == QProcess::NormalExit && exitCode == folderInUse && m_failures >= attemptsOnUsedFolder)
        return giveUpTheFolder();
    const auto delay =
        std::min<Clock::Duration>(firstRestartDelay * (1 << std::min(m_failures, 10)), longestRestartDelay);
    ++m_failures;
    log(QStringLiteral("⚠️ The local server ended (%1 %2); see %3. Starting it again in %4s")
            .arg(status == QProcess::CrashExit ? QStringLiteral("signal") : QStringLiteral("exit code"))
            .arg(exitCode)
            .arg(m_logFile)
            .arg(std::chrono::duration<double>(delay).count()),
        LogLevel::warn);
    m_restart = m_clock.callLater(delay, [this] { launch(); });
}

void LocalServer::giveUpTheFolder() {
    log(QStringLiteral("❌ Another server keeps the folder of the local server locked; see %1").arg(m_logFile),
        LogLevel::error);
    m_wanted = false;
    // Refused connections end at once, unlike those that wait in the queue of a socket that no server reads.
    ::close(std::exchange(m_socket, -1));
    NotificationCenter::shared().post(
        notification::userNotice,
        {{QStringLiteral("message"), LocalizationManager::shared().t(QStringLiteral("start.folderInUse"))}});
}

void LocalServer::stop() {
    m_wanted = false;
    m_restart.reset();
    if (!m_process || m_process->state() == QProcess::NotRunning)
        return;
    m_process->terminate();
    if (!m_process->waitForFinished(3000)) {
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

} // namespace quillo
