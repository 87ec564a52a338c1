#include "Services/AudioService.h"

#include "Core/Log.h"

#include <QAudioDevice>
#include <QAudioSource>
#include <QMediaDevices>
#include <QPointer>
#include <QTimer>

#include <array>

namespace quillo {

namespace {

/// The most frames read at once, below what the capture context takes.
constexpr size_t portionFrames = 4096;
/// How often a running capture looks whether its device is still there.
constexpr std::chrono::milliseconds watchInterval(200);

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("AudioService"));
}

QString idOf(const QAudioDevice& device) { return QString::fromUtf8(device.id()); }

/// PulseAudio gives each sink a source of this name that hears what is played there.
bool isMonitor(const QAudioDevice& device) { return device.id().endsWith(".monitor"); }

class EngineBackend final : public AudioCaptureBackend {
public:
    explicit EngineBackend(SerialExecutor& executor);

    std::vector<AudioDevice> devices() override;
    std::optional<AudioDevice> defaultDevice() override;

private:
    void open(const AsyncStream<AudioChunk>::Sink& sink) override;
    [[nodiscard]] bool isOpen() const override { return m_engine != nullptr; }
    void readRest() override { readInput(); }
    void halt() override { m_engine->stop(); }
    void close(bool wasCapturing) override;

    static std::vector<QAudioDevice> microphones();
    static QAudioDevice defaultMicrophone();
    QAudioDevice chooseDevice();
    void watch();
    void readInput();
    [[noreturn]] static void fail(AudioServiceError::Code code, const QString& reason);

    std::unique_ptr<QAudioSource> m_engine;
    std::unique_ptr<QTimer> m_watch;
    QPointer<QIODevice> m_input; ///< the engine's, gone when it stops
    QString m_deviceID;
    std::function<void(const QString&)> m_handleLoss;
    std::array<float, portionFrames> m_buffer{};
};

EngineBackend::EngineBackend(SerialExecutor& executor)
    : AudioCaptureBackend(executor,
                          {.backend = QStringLiteral("Audio backend: Qt Multimedia"),
                           .leftOver = QStringLiteral("⚠️ Previous engine exists but isCapturing=false. Cleaning up..."),
                           .started = QStringLiteral("✅ Audio engine started successfully, waiting for callbacks..."),
                           .nothingOpen = QStringLiteral("⚠️ stopCapture called but no audio engine instance"),
                           .stopping = QStringLiteral("🛑 Stopping audio capture..."),
                           .statistics = QStringLiteral("📊 Audio engine capture stats: "),
                           .stopped = QStringLiteral("✅ Audio engine stopped")}) {}

std::vector<QAudioDevice> EngineBackend::microphones() {
    std::vector<QAudioDevice> result;
    for (const auto& device : QMediaDevices::audioInputs())
        if (!isMonitor(device))
            result.push_back(device);
    return result;
}

QAudioDevice EngineBackend::defaultMicrophone() {
    // The sound server names a monitor when it knows no better: that would record the loudspeakers.
    if (auto device = QMediaDevices::defaultAudioInput(); !device.isNull() && !isMonitor(device))
        return device;
    const auto all = microphones();
    return all.empty() ? QAudioDevice() : all.front();
}

QAudioDevice EngineBackend::chooseDevice() {
    if (const auto& preferred = preferredDeviceID()) {
        for (const auto& device : QMediaDevices::audioInputs())
            if (idOf(device) == *preferred) {
                log(QStringLiteral("🎙️ Using PREFERRED input device: %1 (%2)").arg(device.description(), idOf(device)));
                return device;
            }
        log(QStringLiteral("⚠️ The preferred input device %1 is absent; using the system default").arg(*preferred),
            LogLevel::warn);
    }
    auto device = defaultMicrophone();
    if (device.isNull())
        fail(AudioServiceError::Code::engineStartFailed, QStringLiteral("there is no microphone"));
    return device;
}

void EngineBackend::fail(AudioServiceError::Code code, const QString& reason) {
    const AudioServiceError error(code);
    log(QStringLiteral("❌ %1: %2").arg(QString::fromUtf8(error.what()), reason), LogLevel::error);
    throw error;
}

void EngineBackend::watch() {
    // The sound server moves the engine to another device when its own is gone, be it the loudspeakers' monitor, and
    // the engine's signal of changed devices does not come for one that is removed: so its list is looked at.
    m_watch = std::make_unique<QTimer>();
    QObject::connect(m_watch.get(), &QTimer::timeout, m_engine.get(), [this] {
        const auto inputs = QMediaDevices::audioInputs();
        if (std::none_of(inputs.begin(), inputs.end(),
                         [this](const QAudioDevice& device) { return idOf(device) == m_deviceID; }))
            m_handleLoss(QStringLiteral("it was removed"));
    });
    m_watch->start(watchInterval);
}

void EngineBackend::open(const AsyncStream<AudioChunk>::Sink& sink) {
    const auto device = chooseDevice();
    auto format = device.preferredFormat();
    format.setSampleFormat(QAudioFormat::Float);
    format.setChannelCount(1);
    if (!format.isValid())
        fail(AudioServiceError::Code::invalidFormat, device.description());
    std::shared_ptr<AUHALCaptureContext> context;
    try {
        context = std::make_shared<AUHALCaptureContext>(format.sampleRate(), sink);
    } catch (const std::runtime_error& error) {
        fail(AudioServiceError::Code::invalidFormat, QString::fromUtf8(error.what()));
    }
    m_deviceID = idOf(device);
    setCaptured(context, device.description());
    m_handleLoss = lossHandler();
    m_engine = std::make_unique<QAudioSource>(device, format);
    m_input = m_engine->start();
    if (!m_input || m_engine->error() != QAudio::NoError)
        fail(AudioServiceError::Code::engineStartFailed,
             QStringLiteral("%1, error %2").arg(device.description()).arg(static_cast<int>(m_engine->error())));
    QObject::connect(m_input, &QIODevice::readyRead, m_engine.get(), [this] { readInput(); });
    QObject::connect(m_engine.get(), &QAudioSource::stateChanged, m_engine.get(), [this](QAudio::State state) {
        if (state == QAudio::StoppedState)
            m_handleLoss(QStringLiteral("the sound server ended it"));
    });
    watch();
}

void EngineBackend::readInput() {
    constexpr auto capacity = static_cast<qint64>(sizeof(m_buffer));
    while (m_input) {
        const auto bytes = m_input->read(reinterpret_cast<char*>(m_buffer.data()), capacity);
        if (bytes <= 0)
            return;
        captureContext().handleInput(m_buffer.data(), static_cast<size_t>(bytes) / sizeof(float));
        // Less than asked for is all there is.
        if (bytes < capacity)
            return;
    }
}

void EngineBackend::close(bool /*wasCapturing*/) {
    m_watch.reset();
    m_engine.reset();
}

std::vector<AudioDevice> EngineBackend::devices() {
    const auto standard = defaultMicrophone();
    std::vector<AudioDevice> result;
    for (const auto& device : microphones())
        result.push_back({idOf(device), device.description(), device.id() == standard.id()});
    return result;
}

std::optional<AudioDevice> EngineBackend::defaultDevice() {
    const auto device = defaultMicrophone();
    if (device.isNull())
        return std::nullopt;
    return AudioDevice{idOf(device), device.description(), true};
}

} // namespace

AudioService::AudioService()
    : CapturingAudioService([](SerialExecutor& executor) { return std::make_shared<EngineBackend>(executor); }) {}

} // namespace quillo
