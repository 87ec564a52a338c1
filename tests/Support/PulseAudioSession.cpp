#include "Support/PulseAudioSession.h"

#include "Support/Async.h"

#include <QDir>
#include <QLocalSocket>

#include <algorithm>
#include <csignal>
#include <span>
#include <stdexcept>

namespace quillo::test {

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
    m_server = std::make_unique<ChildProcess>(
        QStringLiteral("pulseaudio"),
        QStringList{QStringLiteral("-n"), QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
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
    m_microphones.clear();
    m_server.reset();
    QFile::remove(m_socket);
}

void PulseAudioSession::suspend() { m_server->signal(SIGSTOP); }
void PulseAudioSession::resume() { m_server->signal(SIGCONT); }

QString PulseAudioSession::pactl(const QStringList& arguments) {
    QFile output(m_folder.filePath(QStringLiteral("pactl.out")));
    ChildProcess process(QStringLiteral("pactl"), arguments, output.fileName());
    if (!waitUntil([&] { return !process.isRunning(); }) || process.exitCode() != 0)
        throw std::runtime_error("pactl failed: " + arguments.join(u' ').toStdString());
    if (!output.open(QIODevice::ReadOnly))
        throw std::runtime_error("pactl left no output");
    return QString::fromUtf8(output.readAll()).trimmed();
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
    microphone.silence = std::make_unique<ChildProcess>(
        QStringLiteral("pacat"), playback(microphone, QStringLiteral("s16le"))
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

std::unique_ptr<ChildProcess> PulseAudioSession::speak(const QString& name, const std::vector<int16_t>& samples) {
    const auto& microphone = find(name);
    QFile file(m_folder.filePath(name + QStringLiteral(".raw")));
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("cannot write what is to be spoken");
    std::vector<int16_t> frames;
    frames.reserve(samples.size() * static_cast<size_t>(microphone.channels));
    for (const auto sample : samples)
        frames.insert(frames.end(), static_cast<size_t>(microphone.channels), sample);
    const auto bytes = std::as_bytes(std::span(frames));
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size()));
    file.close();
    return std::make_unique<ChildProcess>(QStringLiteral("pacat"), playback(microphone, QStringLiteral("s16le"))
                                                                       << file.fileName());
}

} // namespace quillo::test
