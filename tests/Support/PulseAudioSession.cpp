#include "Support/PulseAudioSession.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <QLocalSocket>

#include <algorithm>
#include <csignal>
#include <span>
#include <stdexcept>

namespace quillo::test {

PulseAudioSession::PulseAudioSession() {
    for (const auto* name : {"home", "run", "run/pulse"})
        QDir(m_folder.path()).mkdir(QString::fromLatin1(name));
    QFile::setPermissions(m_folder.filePath(u"run"_qs), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    m_socket = m_folder.filePath(u"run/pulse/native"_qs);
    qputenv("HOME", m_folder.filePath(u"home"_qs).toUtf8());
    qputenv("XDG_RUNTIME_DIR", m_folder.filePath(u"run"_qs).toUtf8());
    qputenv("PULSE_SERVER", "unix:" + m_socket.toUtf8());
    for (const auto* name : {"XDG_CONFIG_HOME", "DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "PULSE_RUNTIME_PATH"})
        qunsetenv(name);
    start();
}

PulseAudioSession::~PulseAudioSession() { kill(); }

void PulseAudioSession::start() {
    const auto options = u"-n --daemonize=no --exit-idle-time=-1 --disable-shm=yes --use-pid-file=no"_qs.split(u' ');
    const auto socketModule = u"module-native-protocol-unix auth-anonymous=1 socket=%1"_qs.arg(m_socket);
    const auto sinkModule = u"module-null-sink sink_name=speakers rate=48000"_qs;
    m_server = std::make_unique<ChildProcess>(u"pulseaudio"_qs,
                                              options + QStringList{u"-L"_qs, socketModule, u"-L"_qs, sinkModule});
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
    const auto output = m_folder.filePath(u"pactl.out"_qs);
    ChildProcess process(u"pactl"_qs, arguments, output);
    if (!waitUntil([&] { return !process.isRunning(); }) || process.exitCode() != 0)
        throw std::runtime_error("pactl failed: " + arguments.join(u' ').toStdString());
    return QString::fromUtf8(contentOf(output)).trimmed();
}

QStringList PulseAudioSession::playback(const Microphone& microphone, const QString& format) const {
    const auto options = u"--playback --raw --device=%1-mouth --format=%2 --rate=%3 --channels=%4"_qs;
    return options.arg(microphone.name, format).arg(microphone.rate).arg(microphone.channels).split(u' ');
}

void PulseAudioSession::addMicrophone(const QString& name, int rate, int channels) {
    pactl({u"load-module"_qs, u"module-null-sink"_qs, u"sink_name=%1-mouth"_qs.arg(name), u"rate=%1"_qs.arg(rate),
           u"channels=%1"_qs.arg(channels)});
    Microphone microphone{name, rate, channels, {}, nullptr};
    microphone.module =
        pactl({u"load-module"_qs, u"module-remap-source"_qs, u"master=%1-mouth.monitor"_qs.arg(name),
               u"source_name=%1"_qs.arg(name), u"source_properties='device.description=\"The %1\"'"_qs.arg(name)});
    microphone.silence = std::make_unique<ChildProcess>(u"pacat"_qs, playback(microphone, u"s16le"_qs)
                                                                         << u"--latency-msec=10"_qs << u"/dev/zero"_qs);
    m_microphones.push_back(std::move(microphone));
    if (!waitUntil([&] {
            return pactl({u"list"_qs, u"sink-inputs"_qs, u"short"_qs}).count(u'\n') + 1 >=
                   static_cast<qsizetype>(m_microphones.size());
        }))
        throw std::runtime_error("the silence does not play");
}

PulseAudioSession::Microphone& PulseAudioSession::find(const QString& name) {
    return *std::find_if(m_microphones.begin(), m_microphones.end(),
                         [&](const Microphone& microphone) { return microphone.name == name; });
}

void PulseAudioSession::removeMicrophone(const QString& name) { pactl({u"unload-module"_qs, find(name).module}); }

void PulseAudioSession::setDefaultSource(const QString& name) { pactl({u"set-default-source"_qs, name}); }

std::unique_ptr<ChildProcess> PulseAudioSession::speak(const QString& name, const std::vector<int16_t>& samples) {
    const auto& microphone = find(name);
    std::vector<int16_t> frames;
    frames.reserve(samples.size() * static_cast<size_t>(microphone.channels));
    for (const auto sample : samples)
        for (int channel = 0; channel < microphone.channels; ++channel)
            frames.push_back(channel == 0 || microphone.channels == 2 ? sample : int16_t(0));
    const auto bytes = std::as_bytes(std::span(frames));
    const auto file = m_folder.filePath(name + u".raw"_qs);
    writeFile(file, QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())));
    return std::make_unique<ChildProcess>(u"pacat"_qs, playback(microphone, u"s16le"_qs) << file);
}

} // namespace quillo::test
