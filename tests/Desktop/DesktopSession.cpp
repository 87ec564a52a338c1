#include "DesktopSession.h"

#include "Support/Async.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>

// After Qt: Xlib's macros break its headers.
#include <X11/extensions/XTest.h>
#include <X11/Xlib.h>

#include <fcntl.h>
#include <unistd.h>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

constexpr auto startLimit = 20s;

/// The folder of the built programs: application, server and text field.
QString programFolder() { return QStringLiteral(QUILLO_PROGRAM_FOLDER); }

QByteArray readAll(const QString& file) {
    QFile source(file);
    return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
}

} // namespace

std::chrono::nanoseconds monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch(); }

struct DesktopSession::Keyboard {
    explicit Keyboard(const QByteArray& name) : display(XOpenDisplay(name.constData())) {
        if (!display)
            throw DesktopSessionError(QStringLiteral("the virtual display does not accept a client"));
    }
    ~Keyboard() { XCloseDisplay(display); }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;
    Display* display;
};

DesktopSession::DesktopSession(Options options) : m_options(options) {
    if (!m_folder.isValid())
        throw DesktopSessionError(QStringLiteral("no temporary folder for the session"));
    // Before anything starts: what the bus activates inherits it.
    m_environment = QProcessEnvironment::systemEnvironment();
    for (const auto* name : {"WAYLAND_DISPLAY", "XAUTHORITY", "PULSE_SERVER", "QUILLO_SERVER_HOST",
                             "AT_SPI_BUS_ADDRESS", "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE"})
        m_environment.remove(QString::fromLatin1(name));
    for (const auto& [name, folder] :
         {std::pair("HOME", "home"), std::pair("XDG_RUNTIME_DIR", "run"), std::pair("XDG_CONFIG_HOME", "home/.config"),
          std::pair("XDG_DATA_HOME", "home/.local/share"), std::pair("XDG_STATE_HOME", "home/.local/state"),
          std::pair("XDG_CACHE_HOME", "home/.cache")}) {
        QDir().mkpath(path(QString::fromLatin1(folder)));
        QFile::setPermissions(path(QString::fromLatin1(folder)),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_environment.insert(QString::fromLatin1(name), path(QString::fromLatin1(folder)));
    }
    m_environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    m_environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    if (!m_options.newUser)
        writePreferences();
    startDisplay();
    if (m_options.sessionBus)
        startBus();
    else
        m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    startWindowManager();
    if (m_options.compositor)
        launch(QStringLiteral("picom"), QStringLiteral("picom"),
               {QStringLiteral("--backend"), QStringLiteral("xrender"), QStringLiteral("--config"),
                QStringLiteral("/dev/null")});
    if (m_options.sound)
        startSound();
    if (m_options.sessionBus && m_options.secrets != Secrets::none)
        startSecretService();
    if (!waitUntil(
            [this] {
                return run(QStringLiteral("xprop"),
                           {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")})
                    .contains(QStringLiteral("window id"));
            },
            startLimit))
        throw DesktopSessionError(
            QStringLiteral("the window manager did not start; see %1").arg(path(QStringLiteral("openbox.log"))));
}

DesktopSession::~DesktopSession() {
    m_keyboard.reset();
    for (auto process = m_processes.rbegin(); process != m_processes.rend(); ++process)
        end(**process);
}

QProcess& DesktopSession::launch(const QString& name, const QString& program, const QStringList& arguments) {
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(path(name + QStringLiteral(".log")), QIODevice::Append);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setWorkingDirectory(folder());
    process.start(program, arguments);
    if (!process.waitForStarted())
        throw DesktopSessionError(QStringLiteral("%1 could not be started: %2").arg(program, process.errorString()));
    return process;
}

QProcess& DesktopSession::launchAndWaitForFile(const QString& name, const QString& program,
                                               const QStringList& arguments, const QString& file) {
    auto& process = launch(name, program, arguments);
    if (!waitUntil([&] { return QFile::exists(file) || process.state() == QProcess::NotRunning; }, startLimit) ||
        !QFile::exists(file))
        throw DesktopSessionError(QStringLiteral("%1 did not come up: %2")
                                      .arg(program, QString::fromUtf8(readAll(path(name + QStringLiteral(".log"))))));
    return process;
}

QString DesktopSession::run(const QString& program, const QStringList& arguments, int* exitCode) {
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(folder());
    process.start(program, arguments);
    if (!process.waitForStarted() || !waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60s))
        throw DesktopSessionError(QStringLiteral("%1 did not run: %2").arg(program, process.errorString()));
    if (exitCode)
        *exitCode = process.exitCode();
    return QString::fromUtf8(process.readAll());
}

void DesktopSession::end(QProcess& process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(2000);
    }
}

void DesktopSession::startDisplay() {
    const auto file = path(QStringLiteral("display"));
    const int descriptor = ::open(file.toLocal8Bit().constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setStandardErrorFile(path(QStringLiteral("xvfb.log")));
    process.setStandardInputFile(QProcess::nullDevice());
    process.setChildProcessModifier([descriptor] { ::dup2(descriptor, 3); });
    const QStringList arguments{QStringLiteral("-displayfd"),  QStringLiteral("3"),
                                QStringLiteral("-screen"),     QStringLiteral("0"),
                                QStringLiteral("1280x800x24"), QStringLiteral("-nolisten"),
                                QStringLiteral("tcp"),         QStringLiteral("-noreset")};
    process.start(QStringLiteral("Xvfb"), arguments + m_options.displayOptions);
    const bool up = process.waitForStarted() && waitUntil([&] { return readAll(file).endsWith('\n'); }, startLimit);
    ::close(descriptor);
    if (!up)
        throw DesktopSessionError(QStringLiteral("the virtual X server (package xvfb) did not start: %1")
                                      .arg(QString::fromUtf8(readAll(path(QStringLiteral("xvfb.log"))))));
    const QByteArray display = ":" + readAll(file).trimmed();
    m_environment.insert(QStringLiteral("DISPLAY"), QString::fromLatin1(display));
    m_keyboard = std::make_unique<Keyboard>(display);
    run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#35506b")});
}

void DesktopSession::startBus() {
    const auto socket = path(QStringLiteral("run/bus"));
    m_environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("unix:path=%1").arg(socket));
    QStringList arguments{QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                          QStringLiteral("--address=unix:path=%1").arg(socket)};
    arguments << (m_options.secrets == Secrets::none ? QStringLiteral("--config-file=") + busWithoutSecrets()
                                                     : QStringLiteral("--session"));
    launchAndWaitForFile(QStringLiteral("bus"), QStringLiteral("dbus-daemon"), arguments, socket);
}

QString DesktopSession::busWithoutSecrets() {
    // Whatever else the machine offers to start is offered: only the keyrings are not installed.
    const auto services = path(QStringLiteral("services"));
    QDir().mkpath(services);
    const QDir installed(QStringLiteral("/usr/share/dbus-1/services"));
    for (const auto& name : installed.entryList(QDir::Files))
        if (!name.contains(QStringLiteral("secret"), Qt::CaseInsensitive) &&
            !name.contains(QStringLiteral("keyring"), Qt::CaseInsensitive))
            QFile::link(installed.filePath(name), services + u'/' + name);
    QFile file(path(QStringLiteral("bus.conf")));
    const auto configuration =
        QStringLiteral("<busconfig><type>session</type><listen>unix:tmpdir=%1</listen><servicedir>%2</servicedir>"
                       "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                       "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>")
            .arg(path(QStringLiteral("run")), services)
            .toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(configuration) != configuration.size())
        throw DesktopSessionError(QStringLiteral("the session bus could not be configured"));
    return file.fileName();
}

void DesktopSession::startWindowManager() {
    // Its keys are not the session's subject: Alt+Space would open its menu, and that takes the keyboard.
    QString configuration = QString::fromUtf8(readAll(QStringLiteral("/etc/xdg/openbox/rc.xml")));
    configuration.remove(
        QRegularExpression(QStringLiteral("<keybind .*</keybind>"), QRegularExpression::DotMatchesEverythingOption));
    QFile file(path(QStringLiteral("openbox.xml")));
    if (!file.open(QIODevice::WriteOnly) || file.write(configuration.toUtf8()) <= 0)
        throw DesktopSessionError(QStringLiteral("no configuration of the window manager (package openbox)"));
    file.close();
    launch(QStringLiteral("openbox"), QStringLiteral("openbox"), {QStringLiteral("--config-file"), file.fileName()});
}

void DesktopSession::startSound() {
    const auto socket = path(QStringLiteral("run/pulse/native"));
    QDir().mkpath(path(QStringLiteral("run/pulse")));
    const auto rate = QString::number(m_options.microphoneRate);
    m_sound.push_back(&launchAndWaitForFile(
        QStringLiteral("pulseaudio"), QStringLiteral("pulseaudio"),
        {QStringLiteral("-n"), QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
         QStringLiteral("--disable-shm=yes"), QStringLiteral("-L"),
         QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=%1").arg(socket), QStringLiteral("-L"),
         QStringLiteral("module-null-sink sink_name=mouth channels=1 rate=%1").arg(rate), QStringLiteral("-L"),
         QStringLiteral("module-null-sink sink_name=speakers rate=48000"), QStringLiteral("-L"),
         QStringLiteral("module-remap-source master=mouth.monitor source_name=microphone "
                        "source_properties='device.description=\"Virtual Microphone\"'")},
        socket));
    if (!waitUntil(
            [this] {
                return run(QStringLiteral("pactl"), {QStringLiteral("info")}).contains(QStringLiteral("Server Name"));
            },
            startLimit))
        throw DesktopSessionError(QStringLiteral("the sound server did not answer"));
    run(QStringLiteral("pactl"), {QStringLiteral("set-default-source"), QStringLiteral("microphone")});
    run(QStringLiteral("pactl"), {QStringLiteral("set-default-sink"), QStringLiteral("speakers")});
    // An idle null sink sleeps for up to two seconds at a time, as no real microphone does; silence keeps it awake.
    m_sound.push_back(
        &launch(QStringLiteral("silence"), QStringLiteral("pacat"),
                {QStringLiteral("-p"), QStringLiteral("-d"), QStringLiteral("mouth"), QStringLiteral("--format=s16le"),
                 QStringLiteral("--rate=") + rate, QStringLiteral("--channels=1"), QStringLiteral("--latency-msec=10"),
                 QStringLiteral("/dev/zero")}));
    // So does the remapped source that plays the microphone: another listener, as a conference would be, keeps it
    // running.
    m_sound.push_back(
        &launch(QStringLiteral("listener"), QStringLiteral("pacat"),
                {QStringLiteral("-r"), QStringLiteral("-d"), QStringLiteral("microphone"),
                 QStringLiteral("--format=s16le"), QStringLiteral("--rate=") + rate, QStringLiteral("--channels=1"),
                 QStringLiteral("--latency-msec=10"), QStringLiteral("/dev/null")}));
    // A new null sink takes a second or two until it runs; the session is up when the microphone delivers.
    run(QStringLiteral("sh"),
        {QStringLiteral("-c"), QStringLiteral("pacat -r -d microphone --latency-msec=10 | head -c 96000 >/dev/null")});
}

void DesktopSession::stopSound() {
    for (auto process = m_sound.rbegin(); process != m_sound.rend(); ++process)
        end(**process);
    m_sound.clear();
    QFile::remove(path(QStringLiteral("run/pulse/native")));
}

void DesktopSession::writePreferences() {
    QDir().mkpath(path(QStringLiteral("home/.config/quillo")));
    QFile file(path(QStringLiteral("home/.config/quillo/quillo.ini")));
    // The welcome would take the focus. Who has finished it must not be taken for a user of the first version, whose
    // hotkey was another one.
    if (!file.open(QIODevice::WriteOnly) ||
        file.write("[General]\nonboardingCompleted=true\nhotkeyMigratedFnToRightCmd_v2=true\n") <= 0)
        throw DesktopSessionError(QStringLiteral("the preferences could not be written"));
}

void DesktopSession::startSecretService() {
    QDir().mkpath(path(QStringLiteral("home/.local/share/keyrings")));
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setStandardOutputFile(path(QStringLiteral("keyring.log")));
    process.start(QStringLiteral("gnome-keyring-daemon"),
                  {QStringLiteral("--foreground"), QStringLiteral("--unlock"), QStringLiteral("--components=secrets")});
    process.write("\n");
    process.closeWriteChannel();
    if (!waitUntil(
            [this] {
                return run(QStringLiteral("dbus-send"),
                           {QStringLiteral("--session"), QStringLiteral("--print-reply"),
                            QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/"),
                            QStringLiteral("org.freedesktop.DBus.NameHasOwner"),
                            QStringLiteral("string:org.freedesktop.secrets")})
                    .contains(QStringLiteral("boolean true"));
            },
            startLimit))
        throw DesktopSessionError(QStringLiteral("the Secret Service (package gnome-keyring) did not start"));
    if (m_options.secrets == Secrets::locked)
        lockKeyring();
}

void DesktopSession::lockKeyring() {
    run(QStringLiteral("dbus-send"),
        {QStringLiteral("--session"), QStringLiteral("--print-reply"), QStringLiteral("--dest=org.freedesktop.secrets"),
         QStringLiteral("/org/freedesktop/secrets"), QStringLiteral("org.freedesktop.Secret.Service.Lock"),
         QStringLiteral("array:objpath:/org/freedesktop/secrets/collection/login")});
}

void DesktopSession::unlockKeyring() {
    run(QStringLiteral("/usr/bin/python3"), {QStringLiteral(QUILLO_DESKTOP_TESTS "/unlock-keyring.py")});
}

QProcess& DesktopSession::startQuillo(const std::vector<std::pair<QString, QString>>& settings,
                                      const QStringList& wrapper) {
    const auto command = wrapper + QStringList{programFolder() + QStringLiteral("/quillo")};
    auto& process = launch(QStringLiteral("quillo"), command.front(), command.mid(1));
    const auto armed = [&] {
        int code = 0;
        if (!m_options.sessionBus)
            return process.state() == QProcess::NotRunning || readAll(logFile()).contains("🌐 Network monitor started");
        return process.state() == QProcess::NotRunning ||
               (quillo({QStringLiteral("status")}, &code).size() > 0 && code == 0);
    };
    if (!waitUntil(armed, startLimit) || process.state() == QProcess::NotRunning)
        throw DesktopSessionError(QStringLiteral("quillo did not start: %1")
                                      .arg(QString::fromUtf8(readAll(path(QStringLiteral("quillo.log"))))));
    for (const auto& [key, value] : settings)
        quillo({QStringLiteral("settings"), QStringLiteral("set"), key, value});
    return process;
}

QString DesktopSession::quillo(const QStringList& arguments, int* exitCode) {
    return run(programFolder() + QStringLiteral("/quillo"), arguments, exitCode);
}

QJsonObject DesktopSession::status() {
    return QJsonDocument::fromJson(quillo({QStringLiteral("status"), QStringLiteral("--json")}).toUtf8()).object();
}

bool DesktopSession::waitForStatus(const QString& word, std::chrono::milliseconds watchdog) {
    return waitUntil([&] { return status().value(QStringLiteral("status")).toString() == word; }, watchdog);
}

QString DesktopSession::logFile() const {
    return path(QStringLiteral("home/.local/state/QuilloSpeech/quillo-speech.log"));
}

QProcess& DesktopSession::openTextField(const QStringList& arguments) {
    m_fieldReportFile = path(QStringLiteral("field-%1.jsonl").arg(m_processes.size()));
    auto& process = launch(QStringLiteral("text-field"), programFolder() + QStringLiteral("/quillo-text-field"),
                           QStringList{QStringLiteral("--report"), m_fieldReportFile} + arguments);
    const auto focused = [this, pid = process.processId()] {
        return run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowpid")})
                   .trimmed() == QString::number(pid);
    };
    if (!waitUntil(focused, startLimit))
        throw DesktopSessionError(QStringLiteral("the text field did not get the focus"));
    return process;
}

DesktopSession::FieldReport DesktopSession::fieldReport() const {
    const auto lines = readAll(m_fieldReportFile).trimmed().split('\n');
    const auto object = QJsonDocument::fromJson(lines.constLast()).object();
    return {object.value(QStringLiteral("text")).toString(),
            std::chrono::duration_cast<std::chrono::nanoseconds>(
                std::chrono::duration<double, std::milli>(object.value(QStringLiteral("monotonic_ms")).toDouble()))};
}

std::chrono::nanoseconds DesktopSession::sendKey(int keycode, bool press) {
    XTestFakeKeyEvent(m_keyboard->display, static_cast<unsigned>(keycode), press, CurrentTime);
    XFlush(m_keyboard->display);
    return monotonicNow();
}

std::chrono::nanoseconds DesktopSession::pressKey(int keycode) { return sendKey(keycode, true); }

std::chrono::nanoseconds DesktopSession::releaseKey(int keycode) { return sendKey(keycode, false); }

QString DesktopSession::synthesize(const QString& sentence, const QString& voice) {
    const auto hash = QCryptographicHash::hash((voice + sentence).toUtf8(), QCryptographicHash::Sha1).toHex().left(12);
    const auto file = path(QStringLiteral("speech-%1.wav").arg(QString::fromLatin1(hash)));
    if (!QFile::exists(file))
        run(QStringLiteral("flite"),
            {QStringLiteral("-voice"), voice, QStringLiteral("-t"), sentence, QStringLiteral("-o"), file});
    if (!QFile::exists(file))
        throw DesktopSessionError(QStringLiteral("flite (package flite) made no speech"));
    return file;
}

void DesktopSession::play(const QString& waveFile) {
    run(QStringLiteral("paplay"),
        {QStringLiteral("-d"), QStringLiteral("mouth"), QStringLiteral("--latency-msec=200"), waveFile});
}

void DesktopSession::screenshot(const QString& file) {
    run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), file});
}

} // namespace quillo::test
