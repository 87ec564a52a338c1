#include "CampaignSession.h"

#include "Support/Async.h"
#include "Support/CommandLine.h"
#include "Support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillo::test {

using namespace std::chrono_literals;

namespace {

constexpr auto startLimit = 20s;
/// The length of the signal, which repeats; a recording is searched for within seconds of its position.
constexpr size_t signalSeconds = 600;

QString program(const char* name) { return QStringLiteral(QUILLO_PROGRAM_FOLDER) + u'/' + QString::fromLatin1(name); }

/// A port that was free a moment ago.
quint16 freePort() {
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

/// The process that listens on a socket in the file system, or 0.
pid_t listenerOf(const QString& file) {
    const auto path = file.toLocal8Bit();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy_n(path.constData(), std::min<size_t>(static_cast<size_t>(path.size()), sizeof address.sun_path - 1),
                address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length);
    ::close(socket);
    return peer.pid;
}

void killListener(const QString& file) {
    const auto process = listenerOf(file);
    if (process <= 0 || ::kill(process, SIGKILL) != 0)
        throw DesktopSessionError(QStringLiteral("nobody listens on %1").arg(file));
    if (!waitUntil([&] { return listenerOf(file) == 0; }, 5s))
        throw DesktopSessionError(QStringLiteral("%1 outlived its process").arg(file));
}

void killAndWait(QProcess& process) {
    process.kill();
    if (!waitUntil([&] { return process.state() == QProcess::NotRunning; }, 5s))
        throw DesktopSessionError(QStringLiteral("%1 cannot be killed").arg(process.program()));
}

DesktopSession::Options sessionOptions() {
    DesktopSession::Options options;
    // The rate of the application: nothing is resampled, and what arrives can be compared to the bit.
    options.microphoneRate = static_cast<int>(samplesPerSecond);
    return options;
}

} // namespace

CampaignSession::CampaignSession(uint64_t seed) : desktop(sessionOptions()) {
    const auto dataFolder = desktop.environment().value(QStringLiteral("XDG_DATA_HOME"));
    m_disk = std::make_unique<FullDisk>(dataFolder, desktop.path(QStringLiteral("disk-budget")));
    m_serverPort = freePort();
    m_proxy = std::make_unique<FaultProxy>(m_serverPort);
    desktop.environment().insert(QStringLiteral("QUILLO_SERVER_HOST"),
                                 QStringLiteral("127.0.0.1:%1").arg(m_proxy->port()));
    writeSamples(desktop.path(QStringLiteral("signal.pcm")), noise(seed, signalSeconds * samplesPerSecond));
    writeScript();
    moveClock(0s);
    reference.begin();
    play();
    startServer();
}

CampaignSession::~CampaignSession() {
    wakeKeyring();
    if (m_keyring)
        desktop.end(*m_keyring);
}

void CampaignSession::makeHome(bool account) {
    m_hasAccount = account;
    // A browser in which somebody fills in the form at once and follows the link at its end.
    writeFile(desktop.path(QStringLiteral("home/.local/share/applications/browser.desktop")),
              "[Desktop Entry]\nType=Application\nName=Browser\nExec=" QUILLO_SIGN_IN_SCRIPT " %u\n");
    writeFile(desktop.path(QStringLiteral("home/.config/mimeapps.list")),
              "[Default Applications]\nx-scheme-handler/http=browser.desktop\n");
    desktop.environment().insert(QStringLiteral("QUILLO_PROGRAM"), program("quillo"));
    startApplication({});
    if (!account)
        return;
    desktop.quillo({QStringLiteral("register")});
    if (!waitUntil([this] { return isSignedIn(); }, startLimit))
        throw DesktopSessionError(QStringLiteral("nobody could sign in; see %1").arg(desktop.logFile()));
}

void CampaignSession::startApplication(Start start) {
    auto& environment = desktop.environment();
    const auto before = environment;
    if (start.german) {
        for (const auto* name : {"LANG", "LC_ALL"})
            environment.insert(QString::fromLatin1(name), QStringLiteral("de_DE.UTF-8"));
    }
    if (start.movableClock) {
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(QUILLO_FAKETIME));
        environment.insert(QStringLiteral("FAKETIME_TIMESTAMP_FILE"), desktop.path(QStringLiteral("clock")));
        for (const char* name : {"FAKETIME_NO_CACHE", "FAKETIME_DONT_FAKE_MONOTONIC", "DONT_FAKE_MONOTONIC"})
            environment.insert(QString::fromLatin1(name), QStringLiteral("1"));
    }
    m_disk->apply(environment);
    m_start = start;
    const auto launched = logEnd();
    if (start.slowKeyring)
        suspendKeyring();
    m_application = &desktop.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")}});
    environment = before;
    if (start.slowKeyring)
        return; // no sign-in before it answers
    // Wait for the first sign-in: a dictation in that second is not part of the campaign.
    if (!waitUntil([&] { return isLogged(QStringLiteral("User data (re)?stored"), launched); }, startLimit))
        throw DesktopSessionError(QStringLiteral("the application did not sign in; see %1").arg(desktop.logFile()));
}

void CampaignSession::suspendKeyring() {
    const auto answer =
        desktop.run(QStringLiteral("dbus-send"), {QStringLiteral("--session"), QStringLiteral("--print-reply=literal"),
                                                  QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/"),
                                                  QStringLiteral("org.freedesktop.DBus.GetConnectionUnixProcessID"),
                                                  QStringLiteral("string:org.freedesktop.secrets")});
    m_sleepingKeyring = answer.simplified().section(u' ', -1).toInt();
    if (m_sleepingKeyring <= 0 || ::kill(m_sleepingKeyring, SIGSTOP) != 0)
        throw DesktopSessionError(QStringLiteral("the keyring cannot be suspended: %1").arg(answer));
}

void CampaignSession::wakeKeyring() {
    if (const auto process = std::exchange(m_sleepingKeyring, 0); process > 0)
        ::kill(process, SIGCONT);
}

int64_t CampaignSession::killApplication() {
    m_application->kill();
    // Take the position before waiting: on a busy machine a killed process takes a while to disappear, but does nothing
    // any more.
    const auto position = reference.position();
    killAndWait(*m_application);
    return position;
}

bool CampaignSession::isApplicationRunning() const {
    return m_application && m_application->state() == QProcess::Running;
}

void CampaignSession::endApplication() {
    if (m_application)
        desktop.end(*m_application);
}

void CampaignSession::startServer() {
    const auto options = QStringLiteral("--listen 127.0.0.1:%1 --recogniser scripted --max-anonymous-per-hour 100000");
    m_server =
        &desktop.launch(QStringLiteral("server"), program("quillo-server"),
                        words(options.arg(m_serverPort)) +
                            QStringList{QStringLiteral("--script"), desktop.path(QStringLiteral("script.json"))});
    const auto answers = [&] {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_serverPort);
        return socket.waitForConnected(1000);
    };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(
            QStringLiteral("the server did not start; see %1").arg(desktop.path(QStringLiteral("server.log"))));
}

void CampaignSession::killServer() { killAndWait(*m_server); }

QString CampaignSession::word(int number) { return QStringLiteral("w%1").arg(number % differentWords); }

QString CampaignSession::writeScript() {
    QStringList all;
    for (int i = 0; i < differentWords; ++i)
        all.append(u'"' + word(i) + u'"');
    QFile script(desktop.path(QStringLiteral("script.json")));
    if (script.open(QIODevice::WriteOnly))
        script.write(QStringLiteral(R"({"words": [%1], "words_per_second": %2, "words_per_final": 10})")
                         .arg(all.join(u','))
                         .arg(wordsPerSecond)
                         .toUtf8());
    return script.fileName();
}

void CampaignSession::play() {
    const auto options = QStringLiteral("-p -d mouth --raw --format=s16le --rate=%1 --channels=1 --latency-msec=200");
    m_player = &desktop.launch(QStringLiteral("player"), QStringLiteral("pacat"),
                               words(options.arg(samplesPerSecond)) << desktop.path(QStringLiteral("signal.pcm")));
    const auto sounds = [this] {
        const auto now = reference.position();
        const auto latest = reference.read(now - 100, now);
        return std::ranges::any_of(latest, [](int16_t sample) { return sample != 0; });
    };
    if (!waitUntil(sounds, startLimit))
        throw DesktopSessionError(QStringLiteral("the signal does not reach the microphone"));
}

void CampaignSession::keepSounding() {
    if (m_player->state() == QProcess::NotRunning)
        play();
}

void CampaignSession::killSoundServer() {
    killListener(desktop.path(QStringLiteral("run/pulse/native")));
    reference.end();
}

void CampaignSession::startSoundServer() {
    // Create the socket last: once it exists, the microphone exists too.
    QFile commands(desktop.path(QStringLiteral("pulse.pa")));
    if (commands.open(QIODevice::WriteOnly))
        commands.write(QStringLiteral("load-module module-null-sink sink_name=mouth channels=1 rate=%1\n"
                                      "load-module module-null-sink sink_name=speakers rate=48000\n"
                                      "load-module module-remap-source master=mouth.monitor source_name=microphone "
                                      "source_properties='device.description=\"Virtual Microphone\"'\n"
                                      "set-default-source microphone\n"
                                      "set-default-sink speakers\n"
                                      "load-module module-native-protocol-unix auth-anonymous=1 socket=%2\n")
                           .arg(samplesPerSecond)
                           .arg(desktop.path(QStringLiteral("run/pulse/native")))
                           .toUtf8());
    commands.close();
    desktop.launch(QStringLiteral("pulseaudio"), QStringLiteral("pulseaudio"),
                   words(QStringLiteral("-n --daemonize=no --exit-idle-time=-1 --disable-shm=yes -F"))
                       << commands.fileName());
    const auto answers = [this] {
        return desktop.run(QStringLiteral("pactl"), {QStringLiteral("info")}).contains(QStringLiteral("Server Name"));
    };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(QStringLiteral("the sound server did not come back"));
    // The reference starts before the signal, so that only silence precedes it.
    reference.begin();
    play();
}

int64_t CampaignSession::killBus() {
    const auto position = reference.position();
    killListener(desktop.path(QStringLiteral("run/bus")));
    return position;
}

void CampaignSession::startBus() {
    const auto socket = desktop.path(QStringLiteral("run/bus"));
    QFile::remove(socket);
    desktop.launch(QStringLiteral("bus"), QStringLiteral("dbus-daemon"),
                   words(QStringLiteral("--session --nofork --nopidfile"))
                       << QStringLiteral("--address=unix:path=") + socket);
    if (!waitUntil([&] { return listenerOf(socket) > 0; }, startLimit))
        throw DesktopSessionError(QStringLiteral("the session bus did not come back"));
    m_keyring = std::make_unique<QProcess>();
    m_keyring->setProcessEnvironment(desktop.environment());
    m_keyring->setProcessChannelMode(QProcess::MergedChannels);
    m_keyring->setStandardOutputFile(desktop.path(QStringLiteral("keyring.log")), QIODevice::Append);
    m_keyring->start(QStringLiteral("gnome-keyring-daemon"),
                     words(QStringLiteral("--foreground --unlock --components=secrets --replace")));
    m_keyring->write("\n");
    m_keyring->closeWriteChannel();
    const auto answers = [this] {
        return desktop
            .run(QStringLiteral("dbus-send"),
                 words(QStringLiteral("--session --print-reply --dest=org.freedesktop.DBus / "
                                      "org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets")))
            .contains(QStringLiteral("boolean true"));
    };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(QStringLiteral("the Secret Service did not come back"));
}

/// Reads the application's console output, because the log file is cut when it has grown.
static QString consoleOf(const DesktopSession& desktop) { return desktop.path(QStringLiteral("quillo.log")); }

qint64 CampaignSession::logEnd() const { return QFileInfo(consoleOf(desktop)).size(); }

bool CampaignSession::isLogged(const QString& expression, qint64 since) const {
    QFile log(consoleOf(desktop));
    return log.open(QIODevice::ReadOnly) && log.seek(since) &&
           QString::fromUtf8(log.readAll()).contains(QRegularExpression(expression));
}

void CampaignSession::moveClock(std::chrono::seconds shift) {
    // Replace the file atomically: the application reads it at every query of the time.
    const auto name = desktop.path(QStringLiteral("clock"));
    QFile file(name + QStringLiteral(".new"));
    if (file.open(QIODevice::WriteOnly))
        file.write(QByteArray(shift.count() < 0 ? "" : "+") + QByteArray::number(qint64(shift.count())) + "s\n");
    file.close();
    ::rename(file.fileName().toLocal8Bit().constData(), name.toLocal8Bit().constData());
}

QString CampaignSession::recordingFolder() const {
    return desktop.path(QStringLiteral("home/.local/share/QuilloSpeech/pending-audio"));
}

} // namespace quillo::test
