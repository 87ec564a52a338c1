#include "Services/AUHALAudioService.h"

#include "Concurrency/Perform.h"
#include "Core/Log.h"
#include "Services/AUHALCaptureContext.h"

#include <QScopeGuard>

#include <array>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("AudioService"));
}

} // namespace

QString osStatusDescription(AudioStatus status) {
    if (status == 0)
        return QStringLiteral("0(noErr)");
    const auto value = static_cast<uint32_t>(status);
    std::array<char, 4> characters{};
    for (size_t i = 0; i < characters.size(); ++i) {
        characters[i] = static_cast<char>(value >> (24 - 8 * i));
        if (characters[i] < 32 || characters[i] > 126)
            return QString::number(status);
    }
    return QStringLiteral("%1('%2')").arg(status).arg(QString::fromLatin1(characters.data(), 4));
}

/// The state of the service. Operations run on its executor, one after the other; what others read is guarded.
class AUHALAudioService::Backend : public std::enable_shared_from_this<Backend> {
public:
    Backend(AudioHardware& hardware, SerialExecutor& executor) : m_hardware(hardware), m_executor(executor) {}

    AsyncStream<AudioChunk> start();
    void stop();
    void setPreferred(std::optional<QString> id);
    std::vector<AudioDevice> devices();
    std::optional<AudioDevice> defaultDevice();
    QString deviceName() const;
    std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const;

private:
    AudioHardwareDevice chooseDevice();
    void openUnit(const AudioHardwareDevice& device, const AsyncStream<AudioChunk>::Sink& sink);
    [[noreturn]] void fail(const QString& message);
    void require(AudioStatus status, const QString& step);
    void handleLost(uint64_t capture, const QString& reason);
    void tearDown();

    AudioHardware& m_hardware;
    SerialExecutor& m_executor;
    std::optional<QString> m_preferredDeviceID;
    bool m_isCapturing = false;
    uint64_t m_capture = 0; ///< counts captures: a report of an earlier one is stale
    std::unique_ptr<AudioInputUnit> m_audioUnit;
    std::optional<AsyncStream<AudioChunk>::Sink> m_continuation;

    mutable std::mutex m_mutex;
    std::shared_ptr<AUHALCaptureContext> m_captureContext;
    QString m_deviceName;
};

AudioHardwareDevice AUHALAudioService::Backend::chooseDevice() {
    const auto all = m_hardware.inputDevices();
    const auto find = [&](const QString& id) {
        return std::find_if(all.begin(), all.end(), [&](const auto& device) { return device.id == id; });
    };
    if (m_preferredDeviceID) {
        if (const auto found = find(*m_preferredDeviceID); found != all.end()) {
            log(QStringLiteral("🎙️ Using PREFERRED input device: %1 (%2)").arg(found->name, found->id));
            return *found;
        }
        log(QStringLiteral("⚠️ The preferred input device %1 is absent; using the system default")
                .arg(*m_preferredDeviceID),
            LogLevel::warn);
    }
    const auto id = all.empty() ? std::nullopt : m_hardware.defaultInputDevice();
    const auto found = id ? find(*id) : all.end();
    if (found == all.end())
        fail(QStringLiteral("❌ Could not determine default input device"));
    return *found;
}

void AUHALAudioService::Backend::fail(const QString& message) {
    log(message, LogLevel::error);
    throw AudioServiceError(AudioServiceError::Code::deviceSetupFailed, message);
}

void AUHALAudioService::Backend::require(AudioStatus status, const QString& step) {
    if (status == 0)
        return;
    log(QStringLiteral("The sound system says: %1").arg(m_hardware.describe(status)), LogLevel::error);
    const auto message = QStringLiteral("❌ %1 failed (status=%2)").arg(step, osStatusDescription(status));
    if (!m_hardware.isPermissionDenied(status))
        fail(message);
    log(message, LogLevel::error);
    throw AudioServiceError(AudioServiceError::Code::permissionDenied);
}

void AUHALAudioService::Backend::openUnit(const AudioHardwareDevice& device,
                                          const AsyncStream<AudioChunk>::Sink& sink) {
    AudioStatus status = 0;
    m_audioUnit = m_hardware.makeInputUnit(status);
    if (!m_audioUnit && status == 0)
        fail(QStringLiteral("❌ AudioComponentFindNext returned nil"));
    require(status, QStringLiteral("AudioComponentInstanceNew"));
    auto& unit = *m_audioUnit;
    require(unit.enableInput(), QStringLiteral("EnableIO(input)"));
    if (const auto ignored = unit.disableOutput(); ignored != 0)
        log(QStringLiteral("⚠️ DisableIO(output) failed (status=%1)").arg(osStatusDescription(ignored)), LogLevel::warn);
    require(unit.setCurrentDevice(device.id), QStringLiteral("Set CurrentDevice"));
    AudioStreamFormat format;
    require(unit.getDeviceFormat(format), QStringLiteral("Get device stream format"));
    log(QStringLiteral("🎛️ Device stream format: sr=%1 ch=%2 bits=%3 bytesPerFrame=%4 framesPerPacket=%5")
            .arg(format.sampleRate)
            .arg(format.channels)
            .arg(format.bitsPerChannel)
            .arg(format.bytesPerFrame)
            .arg(format.framesPerPacket));
    require(unit.setClientFormat(format.sampleRate), QStringLiteral("Set client stream format"));
    log(QStringLiteral("✅ Client format set: Float32 mono @ %1Hz → output: Int16 mono @ %2")
            .arg(format.sampleRate)
            .arg(AudioFormat::sampleRate));

    std::shared_ptr<AUHALCaptureContext> context;
    try {
        context = std::make_shared<AUHALCaptureContext>(format.sampleRate, sink);
    } catch (const std::runtime_error& error) {
        log(QStringLiteral("The converter says: %1").arg(QString::fromUtf8(error.what())), LogLevel::error);
        fail(QStringLiteral("❌ Failed to create AVAudioConverter for AUHAL pipeline"));
    }
    log(QStringLiteral("🔁 Converter ready: %1 → %2").arg(format.sampleRate).arg(AudioFormat::sampleRate));
    {
        const std::lock_guard lock(m_mutex);
        m_captureContext = context;
        m_deviceName = device.name;
    }
    const auto lost = [weak = weak_from_this(), capture = m_capture](const QString& reason) {
        if (const auto self = weak.lock())
            self->m_executor.post([weak, capture, reason] {
                if (const auto backend = weak.lock())
                    backend->handleLost(capture, reason);
            });
    };
    require(unit.setInputCallback(
                [context](const float* samples, size_t frames) { context->handleInput(samples, frames); }, lost),
            QStringLiteral("SetInputCallback"));
    require(unit.initialize(), QStringLiteral("AudioUnitInitialize"));
    require(unit.start(), QStringLiteral("AudioOutputUnitStart"));
}

AsyncStream<AudioChunk> AUHALAudioService::Backend::start() {
    if (m_isCapturing) {
        log(QStringLiteral("❌ startCapture failed: already capturing"), LogLevel::error);
        throw AudioServiceError(AudioServiceError::Code::alreadyCapturing);
    }
    if (m_audioUnit) {
        log(QStringLiteral("⚠️ Previous AUHAL instance exists. Cleaning up..."), LogLevel::warn);
        tearDown();
    }
    log(QStringLiteral("Audio backend: AUHAL"));
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    ++m_capture;
    m_continuation = sink;
    try {
        openUnit(chooseDevice(), sink);
    } catch (...) {
        tearDown();
        m_continuation.reset();
        throw;
    }
    m_isCapturing = true;
    log(QStringLiteral("✅ AUHAL started successfully, waiting for callbacks..."));
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

void AUHALAudioService::Backend::stop() {
    if (!m_audioUnit) {
        log(QStringLiteral("⚠️ stopCapture called but no AudioUnit instance"), LogLevel::debug);
        return;
    }
    log(QStringLiteral("🛑 Stopping AUHAL audio capture..."));
    m_audioUnit->stop();
    m_captureContext->flush();
    // Taken before it is finished: the end of the stream calls back here.
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        continuation->finish();
    tearDown();
    log(QStringLiteral("✅ Audio capture stopped"));
}

void AUHALAudioService::Backend::handleLost(uint64_t capture, const QString& reason) {
    if (capture != m_capture || !m_isCapturing)
        return;
    const auto message = QStringLiteral("The microphone '%1' is gone (%2). Connect it again or choose another one.")
                             .arg(m_deviceName, reason);
    log(QStringLiteral("⚠️ %1").arg(message), LogLevel::warn);
    m_audioUnit->stop();
    m_captureContext->flush();
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        continuation->fail(
            std::make_exception_ptr(AudioServiceError(AudioServiceError::Code::deviceSetupFailed, message)));
    tearDown();
}

void AUHALAudioService::Backend::tearDown() {
    const bool wasCapturing = std::exchange(m_isCapturing, false);
    if (wasCapturing)
        m_audioUnit->uninitialize();
    m_audioUnit.reset();
    if (!wasCapturing)
        return;
    log(QStringLiteral("📊 AUHAL capture stats: %1").arg(m_captureContext->statsSummary()));
    log(QStringLiteral("✅ AUHAL audio capture stopped"));
}

void AUHALAudioService::Backend::setPreferred(std::optional<QString> id) {
    m_preferredDeviceID = std::move(id);
    log(QStringLiteral("📌 Preferred input device set to: %1")
            .arg(m_preferredDeviceID.value_or(QStringLiteral("nil (use system default)"))));
}

std::vector<AudioDevice> AUHALAudioService::Backend::devices() {
    const auto standard = m_hardware.defaultInputDevice();
    std::vector<AudioDevice> result;
    for (const auto& device : m_hardware.inputDevices())
        if (!device.isMonitor)
            result.push_back({device.id, device.name, device.id == standard});
    return result;
}

std::optional<AudioDevice> AUHALAudioService::Backend::defaultDevice() {
    for (auto& device : devices())
        if (device.isDefault)
            return device;
    return std::nullopt;
}

QString AUHALAudioService::Backend::deviceName() const {
    const std::lock_guard lock(m_mutex);
    return m_deviceName;
}

std::optional<std::chrono::steady_clock::time_point> AUHALAudioService::Backend::firstSampleAt() const {
    const std::lock_guard lock(m_mutex);
    return m_captureContext ? m_captureContext->firstSampleAt() : std::nullopt;
}

AUHALAudioService::AUHALAudioService(AudioHardware& hardware)
    : m_executor(std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.audio"))),
      m_backend(std::make_shared<Backend>(hardware, *m_executor)) {}

AUHALAudioService::~AUHALAudioService() {
    m_executor->runBlocking([this] { m_backend->stop(); });
    // The thread ends before the backend: what is still queued holds it.
    m_executor.reset();
}

Task<AsyncStream<AudioChunk>> AUHALAudioService::startCapture() {
    ++*m_startsUnderWay;
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend, underWay = m_startsUnderWay] {
        const auto done = qScopeGuard([&] { --*underWay; });
        return backend->start();
    });
}

void AUHALAudioService::stopCapture() {
    // A device may take a second to open or to fail: the main thread does not wait for it. What that start delivers is
    // ended right after it.
    if (*m_startsUnderWay > 0)
        m_executor->post([backend = m_backend] { backend->stop(); });
    else
        m_executor->runBlocking([this] { m_backend->stop(); });
}

Task<std::vector<AudioDevice>> AUHALAudioService::getAvailableDevices() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->devices(); });
}

Task<std::optional<AudioDevice>> AUHALAudioService::getDefaultInputDevice() {
    return perform(*m_executor, EventExecutor::main(), [backend = m_backend] { return backend->defaultDevice(); });
}

void AUHALAudioService::setPreferredInputDeviceID(std::optional<QString> id) {
    m_executor->post([backend = m_backend, id = std::move(id)] { backend->setPreferred(id); });
}

QString AUHALAudioService::currentDeviceName() const { return m_backend->deviceName(); }

std::optional<std::chrono::steady_clock::time_point> AUHALAudioService::firstSampleAt() const {
    return m_backend->firstSampleAt();
}

} // namespace quillo
