#include "Services/AudioService.h"

#include "Concurrency/Perform.h"
#include "Core/Log.h"
#include "Services/AUHALCaptureContext.h"

#include <QAudioDevice>
#include <QAudioSource>
#include <QMediaDevices>
#include <QScopeGuard>
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

} // namespace

/// The state of the service. Operations run on its executor, as does all that the engine signals; what others read is
/// guarded.
class AudioService::Backend : public std::enable_shared_from_this<Backend> {
public:
    explicit Backend(SerialExecutor& executor) : m_executor(executor) {}

    AsyncStream<AudioChunk> start();
    void stop();
    void setPreferred(std::optional<QString> id);
    std::vector<AudioDevice> devices();
    std::optional<AudioDevice> defaultDevice();
    QString deviceName() const;
    std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;

private:
    static std::vector<QAudioDevice> microphones();
    static QAudioDevice defaultMicrophone();
    QAudioDevice chooseDevice();
    void watch();
    void postLost(const QString& reason);
    void openEngine(const QAudioDevice& device, const AsyncStream<AudioChunk>::Sink& sink);
    void readInput();
    void handleLost(const QString& reason);
    void tearDown();
    [[noreturn]] static void fail(AudioServiceError::Code code, const QString& reason);

    SerialExecutor& m_executor;
    std::optional<QString> m_preferredDeviceID;
    bool m_isCapturing = false;
    uint64_t m_capture = 0; ///< counts captures: a report of an earlier one is stale
    std::unique_ptr<QAudioSource> m_engine;
    std::unique_ptr<QTimer> m_watch;
    QIODevice* m_input = nullptr; ///< the engine's
    QString m_deviceID;
    std::optional<AsyncStream<AudioChunk>::Sink> m_continuation;
    std::array<float, portionFrames> m_buffer{};

    mutable std::mutex m_mutex;
    std::shared_ptr<AUHALCaptureContext> m_captureContext;
    QString m_deviceName;
};

std::vector<QAudioDevice> AudioService::Backend::microphones() {
    std::vector<QAudioDevice> result;
    for (const auto& device : QMediaDevices::audioInputs())
        if (!isMonitor(device))
            result.push_back(device);
    return result;
}

QAudioDevice AudioService::Backend::defaultMicrophone() {
    // The sound server names a monitor when it knows no better: that would record the loudspeakers.
    if (auto device = QMediaDevices::defaultAudioInput(); !device.isNull() && !isMonitor(device))
        return device;
    const auto all = microphones();
    return all.empty() ? QAudioDevice() : all.front();
}

QAudioDevice AudioService::Backend::chooseDevice() {
    if (m_preferredDeviceID) {
        for (const auto& device : QMediaDevices::audioInputs())
            if (idOf(device) == *m_preferredDeviceID) {
                log(QStringLiteral("🎙️ Using PREFERRED input device: %1 (%2)").arg(device.description(), idOf(device)));
                return device;
            }
        log(QStringLiteral("⚠️ The preferred input device %1 is absent; using the system default")
                .arg(*m_preferredDeviceID),
            LogLevel::warn);
    }
    auto device = defaultMicrophone();
    if (device.isNull())
        fail(AudioServiceError::Code::engineStartFailed, QStringLiteral("there is no microphone"));
    return device;
}

void AudioService::Backend::fail(AudioServiceError::Code code, const QString& reason) {
    const AudioServiceError error(code);
    log(QStringLiteral("❌ %1: %2").arg(QString::fromUtf8(error.what()), reason), LogLevel::error);
    throw error;
}

void AudioService::Backend::watch() {
    // The sound server moves the engine to another device when its own is gone, be it the loudspeakers' monitor, and
    // the engine's signal of changed devices does not come for one that is removed: so its list is looked at.
    m_watch = std::make_unique<QTimer>();
    QObject::connect(m_watch.get(), &QTimer::timeout, m_engine.get(), [this] {
        const auto inputs = QMediaDevices::audioInputs();
        if (std::none_of(inputs.begin(), inputs.end(),
                         [this](const QAudioDevice& device) { return idOf(device) == m_deviceID; }))
            postLost(QStringLiteral("it was removed"));
    });
    m_watch->start(watchInterval);
}

void AudioService::Backend::postLost(const QString& reason) {
    // Posted: the engine must not be ended from inside a call of its own.
    m_executor.post([weak = weak_from_this(), capture = m_capture, reason] {
        const auto backend = weak.lock();
        if (backend && backend->m_capture == capture && backend->m_isCapturing)
            backend->handleLost(reason);
    });
}

void AudioService::Backend::openEngine(const QAudioDevice& device, const AsyncStream<AudioChunk>::Sink& sink) {
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
    {
        const std::lock_guard lock(m_mutex);
        m_captureContext = context;
        m_deviceName = device.description();
    }
    m_engine = std::make_unique<QAudioSource>(device, format);
    m_input = m_engine->start();
    if (!m_input || m_engine->error() != QAudio::NoError)
        fail(AudioServiceError::Code::engineStartFailed,
             QStringLiteral("%1, error %2").arg(device.description()).arg(static_cast<int>(m_engine->error())));
    QObject::connect(m_input, &QIODevice::readyRead, m_engine.get(), [this] { readInput(); });
    QObject::connect(m_engine.get(), &QAudioSource::stateChanged, m_engine.get(), [this](QAudio::State state) {
        if (state == QAudio::StoppedState)
            postLost(QStringLiteral("the sound server ended it"));
    });
    watch();
}

AsyncStream<AudioChunk> AudioService::Backend::start() {
    if (m_isCapturing) {
        log(QStringLiteral("❌ startCapture failed: already capturing"), LogLevel::error);
        throw AudioServiceError(AudioServiceError::Code::alreadyCapturing);
    }
    if (m_engine) {
        log(QStringLiteral("⚠️ Previous engine exists but isCapturing=false. Cleaning up..."), LogLevel::warn);
        tearDown();
    }
    log(QStringLiteral("Audio backend: Qt Multimedia"));
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    ++m_capture;
    m_continuation = sink;
    try {
        openEngine(chooseDevice(), sink);
    } catch (...) {
        tearDown();
        m_continuation.reset();
        throw;
    }
    m_isCapturing = true;
    log(QStringLiteral("✅ Audio engine started successfully, waiting for callbacks..."));
    sink.onTermination([weak = weak_from_this(), capture = m_capture](StreamTermination reason) {
        if (reason != StreamTermination::cancelled)
            return;
        if (const auto self = weak.lock())
            self->m_executor.post([weak, capture] {
                const auto backend = weak.lock();
                if (backend && backend->m_capture == capture)
                    backend->stop();
            });
    });
    return std::move(stream);
}

void AudioService::Backend::readInput() {
    constexpr auto capacity = static_cast<qint64>(sizeof(m_buffer));
    for (;;) {
        const auto bytes = m_input->read(reinterpret_cast<char*>(m_buffer.data()), capacity);
        if (bytes <= 0)
            return;
        m_captureContext->handleInput(m_buffer.data(), static_cast<size_t>(bytes) / sizeof(float));
        // Less than asked for is all there is.
        if (bytes < capacity)
            return;
    }
}

void AudioService::Backend::stop() {
    if (!m_engine) {
        log(QStringLiteral("⚠️ stopCapture called but no audio engine instance"), LogLevel::debug);
        return;
    }
    log(QStringLiteral("🛑 Stopping audio capture..."));
    readInput();
    m_isCapturing = false; // that the engine stops from here on is no loss
    m_engine->stop();
    m_captureContext->flush();
    // Taken before it is finished: the end of the stream calls back here.
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        continuation->finish();
    tearDown();
    log(QStringLiteral("📊 Audio engine capture stats: %1").arg(m_captureContext->statsSummary()));
    log(QStringLiteral("✅ Audio capture stopped"));
}

void AudioService::Backend::handleLost(const QString& reason) {
    const auto message = QStringLiteral("The microphone '%1' is gone (%2). Connect it again or choose another one.")
                             .arg(m_deviceName, reason);
    log(QStringLiteral("⚠️ %1").arg(message), LogLevel::warn);
    m_isCapturing = false;
    m_captureContext->flush();
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        continuation->fail(
            std::make_exception_ptr(AudioServiceError(AudioServiceError::Code::deviceSetupFailed, message)));
    tearDown();
}

void AudioService::Backend::tearDown() {
    m_isCapturing = false;
    m_input = nullptr;
    m_watch.reset();
    m_engine.reset();
}

void AudioService::Backend::setPreferred(std::optional<QString> id) {
    m_preferredDeviceID = std::move(id);
    log(QStringLiteral("📌 Preferred input device set to: %1")
            .arg(m_preferredDeviceID.value_or(QStringLiteral("nil (use system default)"))));
}

std::vector<AudioDevice> AudioService::Backend::devices() {
    const auto standard = defaultMicrophone();
    std::vector<AudioDevice> result;
    for (const auto& device : microphones())
        result.push_back({idOf(device), device.description(), device.id() == standard.id()});
    return result;
}

std::optional<AudioDevice> AudioService::Backend::defaultDevice() {
    const auto device = defaultMicrophone();
    if (device.isNull())
        return std::nullopt;
    return AudioDevice{idOf(device), device.description(), true};
}

QString AudioService::Backend::deviceName() const {
    const std::lock_guard lock(m_mutex);
    return m_deviceName;
}

std::optional<std::chrono::steady_clock::time_point> AudioService::Backend::firstSampleAt() const {
    const std::lock_guard lock(m_mutex);
    return m_captureContext ? m_captureContext->firstSampleAt() : std::nullopt;
}

AudioService::AudioService()
    : m_executor(std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.audio"))),
      m_backend(std::make_shared<Backend>(*m_executor)) {}

AudioService::~AudioService() {
    m_executor->runBlocking([this] { m_backend->stop(); });
    // The thread ends before the backend: what is still queued holds it.
    m_executor.reset();
}

Task<AsyncStream<AudioChunk>> AudioService::startCapture() {
    ++*m_startsUnderWay;
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend, underWay = m_startsUnderWay] {
        const auto done = qScopeGuard([&] { --*underWay; });
        return backend->start();
    });
}

void AudioService::stopCapture() {
    // What a start that is still under way delivers is ended right after it; the main thread does not wait for it.
    if (*m_startsUnderWay > 0)
        m_executor->post([backend = m_backend] { backend->stop(); });
    else
        m_executor->runBlocking([this] { m_backend->stop(); });
}

Task<std::vector<AudioDevice>> AudioService::getAvailableDevices() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->devices(); });
}

Task<std::optional<AudioDevice>> AudioService::getDefaultInputDevice() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->defaultDevice(); });
}

void AudioService::setPreferredInputDeviceID(std::optional<QString> id) {
    m_executor->post([backend = m_backend, id = std::move(id)] { backend->setPreferred(id); });
}

QString AudioService::currentDeviceName() const { return m_backend->deviceName(); }

std::optional<std::chrono::steady_clock::time_point> AudioService::firstSampleAt() const {
    return m_backend->firstSampleAt();
}

} // namespace quillo
