#include "Support/PulseAudioSession.h"

#include "Support/Async.h"

#include <QDir>
#include <QLocalSocket>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include <sys/prctl.h>

namespace quillo::test {

namespace {

std::unique_ptr<QProcess> launch(const QString& program, const QStringList& arguments) {
    auto process = std::make_unique<QProcess>();
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    // Nothing may outlive a test that crashes.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process->start(program, arguments);
    if (!process->waitForStarted())
        throw std::runtime_error("cannot start " + program.toStdString());
    return process;
}

void end(std::unique_ptr<QProcess>& process) {
    if (!process)
        return;
    process->kill();
    process->waitForFinished();
    process.reset();
}

} // namespace

PulseAudioSession::PulseAudioSession() {
    for (const auto* name : {"home", "run", "run/pulse"})
        QDir(m_folder.path()).mkdir(QString::fromLatin1(name));
    QFile::setPermissions(m_folder.filePath(QStringLiteral("run")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    m_socket = m_folder.filePath(QStringLiteral("run/pulse/native"));
    qputenv("HOME", m_folder.filePath(QStringLiteral("home")).toUtf8());
    qputenv("XDG_RUNTIME_DIR", m_folder.filePath(QStringLiteral("run")).toUtf8());
    qputenv("PULSE_SERVER", "unix:" + m_socket.toUtf8());
    for (const auto* name : {"XDG_CONFIG_HOME", "DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "PULSE_RUNTIME_PATH"})
        qunsetenv(name);
    start();
}

PulseAudioSession::~PulseAudioSession() { kill(); }

void PulseAudioSession::start() {
    m_server = launch(QStringLiteral("pulseaudio"),
                      {QStringLiteral("-n"), QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                       QStringLiteral("--disable-shm=yes"), QStringLiteral("--use-pid-file=no"), QStringLiteral("-L"),
                       QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=%1").arg(m_socket),
                       QStringLiteral("-L"), QStringLiteral("module-null-sink sink_name=speakers rate=48000")});
    const bool answers = waitUntil([this] {
        QLocalSocket socket;
        socket.connectToServer(m_socket);
        return socket.waitForConnected(0);
    });
    if (!answers)
        throw std::runtime_error("pulseaudio did not start");
}

void PulseAudioSession::kill() {
    for (auto& microphone : m_microphones)
        end(microphone.silence);
    m_microphones.clear();
    end(m_server);
    QFile::remove(m_socket);
}

void PulseAudioSession::suspend() { ::kill(static_cast<pid_t>(m_server->processId()), SIGSTOP); }
void PulseAudioSession::resume() { ::kill(static_cast<pid_t>(m_server->processId()), SIGCONT); }

QString PulseAudioSession::pactl(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        throw std::runtime_error("pactl " + arguments.join(u' ').toStdString() + ": " +
                                 process.readAllStandardError().toStdString());
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

QStringList PulseAudioSession::playback(const Microphone& microphone, const QString& format) const {
    return {QStringLiteral("--playback"),
            QStringLiteral("--raw"),
            QStringLiteral("--device=%1-mouth").arg(microphone.name),
            QStringLiteral("--format=") + format,
            QStringLiteral("--rate=%1").arg(microphone.rate),
            QStringLiteral("--channels=%1").arg(microphone.channels)};
}

void PulseAudioSession::addMicrophone(const QString& name, int rate, int channels) {
    pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
           QStringLiteral("sink_name=%1-mouth").arg(name), QStringLiteral("rate=%1").arg(rate),
           QStringLiteral("channels=%1").arg(channels)});
    Microphone microphone{name, rate, channels, {}, nullptr};
    microphone.module =
        pactl({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
               QStringLiteral("master=%1-mouth.monitor").arg(name), QStringLiteral("source_name=%1").arg(name),
               QStringLiteral("source_properties='device.description=\"The %1\"'").arg(name)});
    microphone.silence =
        launch(QStringLiteral("pacat"), playback(microphone, QStringLiteral("s16le"))
                                            << QStringLiteral("--latency-msec=10") << QStringLiteral("/dev/zero"));
    m_microphones.push_back(std::move(microphone));
    if (!waitUntil([&] {
            return pactl({QStringLiteral("list"), QStringLiteral("sink-inputs"), QStringLiteral("short")})
                           .count(u'\n') +
                       1 >=
                   static_cast<qsizetype>(m_microphones.size());
        }))
        throw std::runtime_error("the silence does not play");
}

PulseAudioSession::Microphone& PulseAudioSession::find(const QString& name) {
    return *std::find_if(m_microphones.begin(), m_microphones.end(),
                         [&](const Microphone& microphone) { return microphone.name == name; });
}

void PulseAudioSession::removeMicrophone(const QString& name) {
    pactl({QStringLiteral("unload-module"), find(name).module});
}

void PulseAudioSession::setDefaultSource(const QString& name) { pactl({QStringLiteral("set-default-source"), name}); }

std::unique_ptr<QProcess> PulseAudioSession::speak(const QString& name, const std::vector<int16_t>& samples) {
    const auto& microphone = find(name);
    QFile file(m_folder.filePath(name + QStringLiteral(".raw")));
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("cannot write what is to be spoken");
    std::vector<int16_t> frames;
    frames.reserve(samples.size() * static_cast<size_t>(microphone.channels));
    for (const auto sample : samples)
        frames.insert(frames.end(), static_cast<size_t>(microphone.channels), sample);
    file.write(reinterpret_cast<const char*>(frames.data()), static_cast<qint64>(frames.size() * sizeof(int16_t)));
    file.close();
    return launch(QStringLiteral("pacat"), playback(microphone, QStringLiteral("s16le")) << file.fileName());
}

} // namespace quillo::test
