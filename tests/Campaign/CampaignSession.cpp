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
        throw DesktopSessionError(u"nobody listens on %1"_qs.arg(file));
    if (!waitUntil([&] { return listenerOf(file) == 0; }, 5s))
        throw DesktopSessionError(u"%1 outlived its process"_qs.arg(file));
}

void killAndWait(QProcess& process) {
    process.kill();
    if (!waitUntil([&] { return process.state() == QProcess::NotRunning; }, 5s))
        throw DesktopSessionError(u"%1 cannot be killed"_qs.arg(process.program()));
}

DesktopSession::Options sessionOptions() {
    DesktopSession::Options options;
    // The rate of the application: nothing is resampled, and what arrives can be compared to the bit.
    options.microphoneRate = static_cast<int>(samplesPerSecond);
    return options;
}

} // namespace

CampaignSession::CampaignSession(uint64_t seed) : desktop(sessionOptions()) {
    const auto dataFolder = desktop.environment().value(u"XDG_DATA_HOME"_qs);
    m_disk = std::make_unique<FullDisk>(dataFolder, desktop.path(u"disk-budget"_qs));
    m_serverPort = freePort();
    m_proxy = std::make_unique<FaultProxy>(m_serverPort);
    desktop.environment().insert(u"QUILLO_SERVER_HOST"_qs, u"127.0.0.1:%1"_qs.arg(m_proxy->port()));
    writeSamples(desktop.path(u"signal.pcm"_qs), noise(seed, signalSeconds * samplesPerSecond));
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
    writeFile(desktop.path(u"home/.local/share/applications/browser.desktop"_qs),
              "[Desktop Entry]\nType=Application\nName=Browser\nExec=" QUILLO_SIGN_IN_SCRIPT " %u\n");
    writeFile(desktop.path(u"home/.config/mimeapps.list"_qs),
              "[Default Applications]\nx-scheme-handler/http=browser.desktop\n");
    desktop.environment().insert(u"QUILLO_PROGRAM"_qs, program("quillo"));
    startApplication({});
    if (!account)
        return;
    desktop.quillo({u"register"_qs});
    if (!waitUntil([this] { return isSignedIn(); }, startLimit))
        throw DesktopSessionError(u"nobody could sign in; see %1"_qs.arg(desktop.logFile()));
}

void CampaignSession::startApplication(Start start) {
    auto& environment = desktop.environment();
    const auto before = environment;
    if (start.german) {
        for (const auto* name : {"LANG", "LC_ALL"})
            environment.insert(QString::fromLatin1(name), u"de_DE.UTF-8"_qs);
    }
    if (start.movableClock) {
        environment.insert(u"LD_PRELOAD"_qs, QStringLiteral(QUILLO_FAKETIME));
        environment.insert(u"FAKETIME_TIMESTAMP_FILE"_qs, desktop.path(u"clock"_qs));
        for (const char* name : {"FAKETIME_NO_CACHE", "FAKETIME_DONT_FAKE_MONOTONIC", "DONT_FAKE_MONOTONIC"})
            environment.insert(QString::fromLatin1(name), u"1"_qs);
    }
    m_disk->apply(environment);
    m_start = start;
    const auto launched = logEnd();
    if (start.slowKeyring)
        suspendKeyring();
    m_application = &desktop.startQuillo({{u"primaryLanguage"_qs, u"en"_qs}});
    environment = before;
    if (start.slowKeyring)
        return; // no sign-in before it answers
    // Wait for the first sign-in: a dictation in that second is not part of the campaign.
    if (!waitUntil([&] { return isLogged(u"User data (re)?stored"_qs, launched); }, startLimit))
        throw DesktopSessionError(u"the application did not sign in; see %1"_qs.arg(desktop.logFile()));
}

void CampaignSession::suspendKeyring() {
    const auto answer = desktop.run(
        u"dbus-send"_qs, {u"--session"_qs, u"--print-reply=literal"_qs, u"--dest=org.freedesktop.DBus"_qs, u"/"_qs,
                          u"org.freedesktop.DBus.GetConnectionUnixProcessID"_qs, u"string:org.freedesktop.secrets"_qs});
    m_sleepingKeyring = answer.simplified().section(u' ', -1).toInt();
    if (m_sleepingKeyring <= 0 || ::kill(m_sleepingKeyring, SIGSTOP) != 0)
        throw DesktopSessionError(u"the keyring cannot be suspended: %1"_qs.arg(answer));
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
    const auto options = u"--listen 127.0.0.1:%1 --recogniser scripted --max-anonymous-per-hour 100000"_qs;
    m_server = &desktop.launch(u"server"_qs, program("quillo-server"),
                               words(options.arg(m_serverPort)) +
                                   QStringList{u"--script"_qs, desktop.path(u"script.json"_qs)});
    const auto answers = [&] {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_serverPort);
        return socket.waitForConnected(1000);
    };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(u"the server did not start; see %1"_qs.arg(desktop.path(u"server.log"_qs)));
}

void CampaignSession::killServer() { killAndWait(*m_server); }

QString CampaignSession::word(int number) { return u"w%1"_qs.arg(number % differentWords); }

QString CampaignSession::writeScript() {
    QStringList all;
    for (int i = 0; i < differentWords; ++i)
        all.append(u'"' + word(i) + u'"');
    QFile script(desktop.path(u"script.json"_qs));
    if (script.open(QIODevice::WriteOnly))
        script.write(uR"({"words": [%1], "words_per_second": %2, "words_per_final": 10})"_qs.arg(all.join(u','))
                         .arg(wordsPerSecond)
                         .toUtf8());
    return script.fileName();
}

void CampaignSession::play() {
    const auto options = u"-p -d mouth --raw --format=s16le --rate=%1 --channels=1 --latency-msec=200"_qs;
    m_player = &desktop.launch(u"player"_qs, u"pacat"_qs,
                               words(options.arg(samplesPerSecond)) << desktop.path(u"signal.pcm"_qs));
    const auto sounds = [this] {
        const auto now = reference.position();
        const auto latest = reference.read(now - 100, now);
        return std::ranges::any_of(latest, [](int16_t sample) { return sample != 0; });
    };
    if (!waitUntil(sounds, startLimit))
        throw DesktopSessionError(u"the signal does not reach the microphone"_qs);
}

void CampaignSession::keepSounding() {
    if (m_player->state() == QProcess::NotRunning)
        play();
}

void CampaignSession::killSoundServer() {
    killListener(desktop.path(u"run/pulse/native"_qs));
    reference.end();
}

void CampaignSession::startSoundServer() {
    // Create the socket last: once it exists, the microphone exists too.
    QFile commands(desktop.path(u"pulse.pa"_qs));
    if (commands.open(QIODevice::WriteOnly))
        commands.write(u"load-module module-null-sink sink_name=mouth channels=1 rate=%1\n"
                       "load-module module-null-sink sink_name=speakers rate=48000\n"
                       "load-module module-remap-source master=mouth.monitor source_name=microphone "
                       "source_properties='device.description=\"Virtual Microphone\"'\n"
                       "set-default-source microphone\n"
                       "set-default-sink speakers\n"
                       "load-module module-native-protocol-unix auth-anonymous=1 socket=%2\n"_qs.arg(samplesPerSecond)
                           .arg(desktop.path(u"run/pulse/native"_qs))
                           .toUtf8());
    commands.close();
    desktop.launch(u"pulseaudio"_qs, u"pulseaudio"_qs,
                   words(u"-n --daemonize=no --exit-idle-time=-1 --disable-shm=yes -F"_qs) << commands.fileName());
    const auto answers = [this] { return desktop.run(u"pactl"_qs, {u"info"_qs}).contains(u"Server Name"_qs); };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(u"the sound server did not come back"_qs);
    // The reference starts before the signal, so that only silence precedes it.
    reference.begin();
    play();
}

int64_t CampaignSession::killBus() {
    const auto position = reference.position();
    killListener(desktop.path(u"run/bus"_qs));
    return position;
}

void CampaignSession::startBus() {
    const auto socket = desktop.path(u"run/bus"_qs);
    QFile::remove(socket);
    desktop.launch(u"bus"_qs, u"dbus-daemon"_qs,
                   words(u"--session --nofork --nopidfile"_qs) << u"--address=unix:path="_qs + socket);
    if (!waitUntil([&] { return listenerOf(socket) > 0; }, startLimit))
        throw DesktopSessionError(u"the session bus did not come back"_qs);
    m_keyring = std::make_unique<QProcess>();
    m_keyring->setProcessEnvironment(desktop.environment());
    m_keyring->setProcessChannelMode(QProcess::MergedChannels);
    m_keyring->setStandardOutputFile(desktop.path(u"keyring.log"_qs), QIODevice::Append);
    m_keyring->start(u"gnome-keyring-daemon"_qs, words(u"--foreground --unlock --components=secrets --replace"_qs));
    m_keyring->write("\n");
    m_keyring->closeWriteChannel();
    const auto answers = [this] {
        return desktop
            .run(u"dbus-send"_qs, words(u"--session --print-reply --dest=org.freedesktop.DBus / "
                                        "org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets"_qs))
            .contains(u"boolean true"_qs);
    };
    if (!waitUntil(answers, startLimit))
        throw DesktopSessionError(u"the Secret Service did not come back"_qs);
}

/// Reads the application's console output, because the log file is cut when it has grown.
static QString consoleOf(const DesktopSession& desktop) { return desktop.path(u"quillo.log"_qs); }

qint64 CampaignSession::logEnd() const { return QFileInfo(consoleOf(desktop)).size(); }

bool CampaignSession::isLogged(const QString& expression, qint64 since) const {
    QFile log(consoleOf(desktop));
    return log.open(QIODevice::ReadOnly) && log.seek(since) &&
           QString::fromUtf8(log.readAll()).contains(QRegularExpression(expression));
}

void CampaignSession::moveClock(std::chrono::seconds shift) {
    // Replace the file atomically: the application reads it at every query of the time.
    const auto name = desktop.path(u"clock"_qs);
    QFile file(name + u".new"_qs);
    if (file.open(QIODevice::WriteOnly))
        file.write(QByteArray(shift.count() < 0 ? "" : "+") + QByteArray::number(qint64(shift.count())) + "s\n");
    file.close();
    ::rename(file.fileName().toLocal8Bit().constData(), name.toLocal8Bit().constData());
}

QString CampaignSession::recordingFolder() const {
    return desktop.path(u"home/.local/share/QuilloSpeech/pending-audio"_qs);
}

} // namespace quillo::test
