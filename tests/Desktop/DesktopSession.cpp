#include "DesktopSession.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <iostream>

#include <fcntl.h>
#include <unistd.h>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

constexpr auto startLimit = 20s;

/// The folder of the built programs: application, server and text field.
QString programFolder() { return QStringLiteral(QUILLO_PROGRAM_FOLDER); }

} // namespace

std::chrono::nanoseconds monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch(); }

DesktopSession::DesktopSession(Options options) : m_options(options) {
    if (!m_folder.isValid())
        throw DesktopSessionError(u"no temporary folder for the session"_qs);
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
    m_environment.insert(u"LANG"_qs, u"C.UTF-8"_qs);
    m_environment.insert(u"LC_ALL"_qs, u"C.UTF-8"_qs);
    if (!m_options.newUser)
        writePreferences();
    startDisplay();
    if (m_options.sessionBus)
        startBus();
    else
        m_environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_qs, u"disabled:"_qs);
    startWindowManager();
    if (m_options.compositor)
        launch(u"picom"_qs, u"picom"_qs, {u"--backend"_qs, u"xrender"_qs, u"--config"_qs, u"/dev/null"_qs});
    if (m_options.sound)
        startSound();
    if (m_options.sessionBus && m_options.secrets != Secrets::none)
        startSecretService();
    if (!waitUntil([this] { return shell(u"xprop -root _NET_SUPPORTING_WM_CHECK"_qs).contains(u"window id"_qs); },
                   startLimit))
        throw DesktopSessionError(u"the window manager did not start; see %1"_qs.arg(path(u"openbox.log"_qs)));
}

DesktopSession::~DesktopSession() {
    if (testing::Test::HasFailure())
        explainFailure();
    m_keyboard.reset();
    for (auto process = m_processes.rbegin(); process != m_processes.rend(); ++process)
        end(**process);
}

QProcess& DesktopSession::launch(const QString& name, const QString& program, const QStringList& arguments) {
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(path(name + u".log"_qs), QIODevice::Append);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setWorkingDirectory(folder());
    process.start(program, arguments);
    if (!process.waitForStarted())
        throw DesktopSessionError(u"%1 could not be started: %2"_qs.arg(program, process.errorString()));
    return process;
}

QProcess& DesktopSession::launchAndWaitForFile(const QString& name, const QString& program,
                                               const QStringList& arguments, const QString& file) {
    auto& process = launch(name, program, arguments);
    if (!waitUntil([&] { return QFile::exists(file) || process.state() == QProcess::NotRunning; }, startLimit) ||
        !QFile::exists(file))
        throw DesktopSessionError(
            u"%1 did not come up: %2"_qs.arg(program, QString::fromUtf8(contentOf(path(name + u".log"_qs)))));
    return process;
}

QString DesktopSession::run(const QString& program, const QStringList& arguments, int* exitCode) {
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(folder());
    process.start(program, arguments);
    if (!process.waitForStarted() || !waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60s))
        throw DesktopSessionError(u"%1 did not run: %2"_qs.arg(program, process.errorString()));
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
    const auto file = path(u"display"_qs);
    const int descriptor = ::open(file.toLocal8Bit().constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setStandardErrorFile(path(u"xvfb.log"_qs));
    process.setStandardInputFile(QProcess::nullDevice());
    process.setChildProcessModifier([descriptor] { ::dup2(descriptor, 3); });
    const auto arguments = u"-displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset"_qs.split(u' ');
    process.start(u"Xvfb"_qs, arguments + m_options.displayOptions);
    const bool up = process.waitForStarted() && waitUntil([&] { return contentOf(file).endsWith('\n'); }, startLimit);
    ::close(descriptor);
    if (!up)
        throw DesktopSessionError(u"the virtual X server (package xvfb) did not start: %1"_qs.arg(
            QString::fromUtf8(contentOf(path(u"xvfb.log"_qs)))));
    const auto display = QString::fromLatin1(":" + contentOf(file).trimmed());
    m_environment.insert(u"DISPLAY"_qs, display);
    m_keyboard = std::make_unique<PhysicalKeyboard>(display);
    shell(u"xsetroot -solid '#35506b'"_qs);
}

void DesktopSession::startBus() {
    const auto socket = path(u"run/bus"_qs);
    m_environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_qs, u"unix:path=%1"_qs.arg(socket));
    QStringList arguments{u"--nofork"_qs, u"--nopidfile"_qs, u"--address=unix:path=%1"_qs.arg(socket)};
    arguments << (m_options.secrets == Secrets::none ? u"--config-file="_qs + busWithoutSecrets() : u"--session"_qs);
    launchAndWaitForFile(u"bus"_qs, u"dbus-daemon"_qs, arguments, socket);
}

QString DesktopSession::busWithoutSecrets() {
    // Whatever else the machine offers to start is offered: only the keyrings are not installed.
    const auto services = path(u"services"_qs);
    QDir().mkpath(services);
    const QDir installed(u"/usr/share/dbus-1/services"_qs);
    for (const auto& name : installed.entryList(QDir::Files))
        if (!name.contains(u"secret"_qs, Qt::CaseInsensitive) && !name.contains(u"keyring"_qs, Qt::CaseInsensitive))
            QFile::link(installed.filePath(name), services + u'/' + name);
    const auto file = path(u"bus.conf"_qs);
    const auto configuration =
        u"<busconfig><type>session</type><listen>unix:tmpdir=%1</listen><servicedir>%2</servicedir>"
        "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
        "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>"_qs.arg(path(u"run"_qs), services)
            .toUtf8();
    writeFile(file, configuration);
    return file;
}

void DesktopSession::startWindowManager() {
    // Its keys are not the session's subject: Alt+Space would open its menu, and that takes the keyboard.
    QString configuration = QString::fromUtf8(contentOf(u"/etc/xdg/openbox/rc.xml"_qs));
    configuration.remove(
        QRegularExpression(u"<keybind .*</keybind>"_qs, QRegularExpression::DotMatchesEverythingOption));
    if (configuration.isEmpty())
        throw DesktopSessionError(u"no configuration of the window manager (package openbox)"_qs);
    writeFile(path(u"openbox.xml"_qs), configuration.toUtf8());
    launch(u"openbox"_qs, u"openbox"_qs, {u"--config-file"_qs, path(u"openbox.xml"_qs)});
}

void DesktopSession::startSound() {
    const auto socket = path(u"run/pulse/native"_qs);
    QDir().mkpath(path(u"run/pulse"_qs));
    const auto rate = QString::number(m_options.microphoneRate);
    m_sound.push_back(
        &launchAndWaitForFile(u"pulseaudio"_qs, u"pulseaudio"_qs,
                              {u"-n"_qs, u"--daemonize=no"_qs, u"--exit-idle-time=-1"_qs, u"--disable-shm=yes"_qs,
                               u"-L"_qs, u"module-native-protocol-unix auth-anonymous=1 socket=%1"_qs.arg(socket),
                               u"-L"_qs, u"module-null-sink sink_name=mouth channels=1 rate=%1"_qs.arg(rate), u"-L"_qs,
                               u"module-null-sink sink_name=speakers rate=48000"_qs, u"-L"_qs,
                               u"module-remap-source master=mouth.monitor source_name=microphone "
                               "source_properties='device.description=\"Virtual Microphone\"'"_qs},
                              socket));
    if (!waitUntil([this] { return shell(u"pactl info"_qs).contains(u"Server Name"_qs); }, startLimit))
        throw DesktopSessionError(u"the sound server did not answer"_qs);
    shell(u"pactl set-default-source microphone && pactl set-default-sink speakers"_qs);
    // An idle null sink sleeps for up to two seconds at a time, as no real microphone does; silence keeps it awake.
    const auto pacat = [&](const char* name, const char* flow, const char* file) {
        const auto options = u"%1 --format=s16le --rate=%2 --channels=1 --latency-msec=10 %3"_qs.arg(
            QLatin1String(flow), rate, QLatin1String(file));
        m_sound.push_back(&launch(QLatin1String(name), u"pacat"_qs, options.split(u' ')));
    };
    pacat("silence", "-p -d mouth", "/dev/zero");
    // So does the remapped source that plays the microphone: another listener, as a conference would be, keeps it
    // running.
    pacat("listener", "-r -d microphone", "/dev/null");
    // A new null sink takes a second or two until it runs; the session is up when the microphone delivers.
    shell(u"pacat -r -d microphone --latency-msec=10 | head -c 96000 >/dev/null"_qs);
}

void DesktopSession::stopSound() {
    for (auto process = m_sound.rbegin(); process != m_sound.rend(); ++process)
        end(**process);
    m_sound.clear();
    QFile::remove(path(u"run/pulse/native"_qs));
}

void DesktopSession::writePreferences() {
    // The welcome would take the focus. Who has finished it must not be taken for a user of the first version, whose
    // hotkey was another one.
    writeFile(path(u"home/.config/quillo/quillo.ini"_qs),
              "[General]\nonboardingCompleted=true\nhotkeyMigratedFnToRightCmd_v2=true\n");
}

void DesktopSession::startSecretService() {
    QDir().mkpath(path(u"home/.local/share/keyrings"_qs));
    auto& process = *m_processes.emplace_back(std::make_unique<QProcess>());
    process.setProcessEnvironment(m_environment);
    process.setStandardOutputFile(path(u"keyring.log"_qs));
    process.start(u"gnome-keyring-daemon"_qs, {u"--foreground"_qs, u"--unlock"_qs, u"--components=secrets"_qs});
    process.write("\n");
    process.closeWriteChannel();
    const auto isOwned = u"dbus-send --session --print-reply --dest=org.freedesktop.DBus / "
                         u"org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets"_qs;
    if (!waitUntil([&] { return shell(isOwned).contains(u"boolean true"_qs); }, startLimit))
        throw DesktopSessionError(u"the Secret Service (package gnome-keyring) did not start"_qs);
}

void DesktopSession::lockKeyring() {
    shell(u"dbus-send --session --print-reply --dest=org.freedesktop.secrets /org/freedesktop/secrets "
          u"org.freedesktop.Secret.Service.Lock array:objpath:/org/freedesktop/secrets/collection/login"_qs);
}

void DesktopSession::unlockKeyring() {
    run(u"/usr/bin/python3"_qs, {QStringLiteral(QUILLO_DESKTOP_TESTS "/unlock-keyring.py")});
}

void DesktopSession::recognise(const QString& words) {
    const auto script = path(u"script.json"_qs);
    writeFile(script, R"({"events": [{"at": 0.2, "final": ")" + words.toUtf8() + R"("}]})");
    m_environment.insert(u"QUILLO_SERVER_OPTIONS"_qs, u"--recogniser scripted --script "_qs + script);
}

QProcess& DesktopSession::startQuillo(const std::vector<std::pair<QString, QString>>& settings,
                                      const QStringList& wrapper) {
    const auto command = wrapper + QStringList{programFolder() + u"/quillo"_qs};
    auto& process = launch(u"quillo"_qs, command.front(), command.mid(1));
    const auto armed = [&] {
        int code = 0;
        if (!m_options.sessionBus)
            return process.state() == QProcess::NotRunning ||
                   contentOf(logFile()).contains("🌐 Network monitor started");
        return process.state() == QProcess::NotRunning || (quillo({u"status"_qs}, &code).size() > 0 && code == 0);
    };
    if (!waitUntil(armed, startLimit) || process.state() == QProcess::NotRunning)
        throw DesktopSessionError(
            u"quillo did not start: %1"_qs.arg(QString::fromUtf8(contentOf(path(u"quillo.log"_qs)))));
    for (const auto& [key, value] : settings)
        quillo({u"settings"_qs, u"set"_qs, key, value});
    return process;
}

QString DesktopSession::quillo(const QStringList& arguments, int* exitCode) {
    return run(programFolder() + u"/quillo"_qs, arguments, exitCode);
}

QJsonObject DesktopSession::status() {
    return QJsonDocument::fromJson(quillo({u"status"_qs, u"--json"_qs}).toUtf8()).object();
}

bool DesktopSession::waitForStatus(const QString& word, std::chrono::milliseconds watchdog) {
    return waitUntil([&] { return status("status") == word; }, watchdog);
}

QString DesktopSession::logFile() const { return path(u"home/.local/state/QuilloSpeech/quillo-speech.log"_qs); }

int DesktopSession::logged(const QString& words) const {
    return static_cast<int>(QString::fromUtf8(contentOf(logFile())).count(words));
}

void DesktopSession::explainFailure() {
    screenshot(path(u"failure.png"_qs));
    keepFolder();
    std::cerr << "logs: " << folder().toStdString() << "\n";
}

QProcess& DesktopSession::openTextField(const QStringList& arguments) {
    m_fieldReportFile = path(u"field-%1.jsonl"_qs.arg(m_processes.size()));
    auto& process = launch(u"text-field"_qs, programFolder() + u"/quillo-text-field"_qs,
                           QStringList{u"--report"_qs, m_fieldReportFile} + arguments);
    const auto focused = [this, pid = process.processId()] {
        return shell(u"xdotool getactivewindow getwindowpid"_qs).trimmed() == QString::number(pid);
    };
    if (!waitUntil(focused, startLimit))
        throw DesktopSessionError(u"the text field did not get the focus"_qs);
    return process;
}

DesktopSession::FieldReport DesktopSession::fieldReport() const {
    const auto lines = contentOf(m_fieldReportFile).trimmed().split('\n');
    const auto object = QJsonDocument::fromJson(lines.constLast()).object();
    return {object.value(u"text"_qs).toString(),
            std::chrono::duration_cast<std::chrono::nanoseconds>(
                std::chrono::duration<double, std::milli>(object.value(u"monotonic_ms"_qs).toDouble()))};
}

std::chrono::nanoseconds DesktopSession::sendKey(int keycode, bool press) {
    m_keyboard->programKey(keycode, press);
    return monotonicNow();
}

QString DesktopSession::synthesize(const QString& sentence, const QString& voice) {
    const auto hash = QCryptographicHash::hash((voice + sentence).toUtf8(), QCryptographicHash::Sha1).toHex().left(12);
    const auto file = path(u"speech-%1.wav"_qs.arg(QString::fromLatin1(hash)));
    if (!QFile::exists(file))
        run(u"flite"_qs, {u"-voice"_qs, voice, u"-t"_qs, sentence, u"-o"_qs, file});
    if (!QFile::exists(file))
        throw DesktopSessionError(u"flite (package flite) made no speech"_qs);
    return file;
}

void DesktopSession::play(const QString& waveFile) {
    run(u"paplay"_qs, {u"-d"_qs, u"mouth"_qs, u"--latency-msec=200"_qs, waveFile});
}

void DesktopSession::screenshot(const QString& file) { run(u"import"_qs, {u"-window"_qs, u"root"_qs, file}); }

} // namespace quillo::test
