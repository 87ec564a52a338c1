#include "Services/Microphone/AUHALAudioService.h"

#include "Core/Log.h"

#include <array>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("AudioService"));
}

/// One input unit per capture.
class InputUnitBackend final : public AudioCaptureBackend {
public:
    InputUnitBackend(AudioHardware& hardware, SerialExecutor& executor);

    std::vector<AudioDevice> devices() override;
    std::optional<AudioDevice> defaultDevice() override;

private:
    void open(const AsyncStream<AudioChunk>::Sink& sink) override;
    [[nodiscard]] bool isOpen() const override { return m_audioUnit != nullptr; }
    void halt() override { m_audioUnit->stop(); }
    void close(bool wasCapturing) override;

    AudioHardwareDevice chooseDevice();
    [[noreturn]] static void fail(const QString& message,
                                  AudioServiceError::Code code = AudioServiceError::Code::deviceSetupFailed);
    void require(AudioStatus status, const QString& step);

    AudioHardware& m_hardware;
    std::unique_ptr<AudioInputUnit> m_audioUnit;
};

InputUnitBackend::InputUnitBackend(AudioHardware& hardware, SerialExecutor& executor)
    : AudioCaptureBackend(executor,
                          {.backend = QStringLiteral("Audio backend: AUHAL"),
                           .leftOver = QStringLiteral("⚠️ Previous AUHAL instance exists. Cleaning up..."),
                           .started = QStringLiteral("✅ AUHAL started successfully, waiting for callbacks..."),
                           .nothingOpen = QStringLiteral("⚠️ stopCapture called but no AudioUnit instance"),
                           .stopping = QStringLiteral("🛑 Stopping AUHAL audio capture..."),
                           .statistics = QStringLiteral("📊 AUHAL capture stats: "),
                           .stopped = QStringLiteral("✅ AUHAL audio capture stopped")}),
      m_hardware(hardware) {}

AudioHardwareDevice InputUnitBackend::chooseDevice() {
    const auto all = m_hardware.inputDevices();
    const auto find = [&](const QString& id) {
        return std::find_if(all.begin(), all.end(), [&](const auto& device) { return device.id == id; });
    };
    if (const auto& preferred = preferredDeviceID()) {
        if (const auto found = find(*preferred); found != all.end()) {
            log(QStringLiteral("🎙️ Using PREFERRED input device: %1 (%2)").arg(found->name, found->id));
            return *found;
        }
        log(QStringLiteral("⚠️ The preferred input device %1 is absent; using the system default").arg(*preferred),
            LogLevel::warn);
    }
    const auto id = all.empty() ? std::nullopt : m_hardware.defaultInputDevice();
    const auto found = id ? find(*id) : all.end();
    if (found == all.end())
        fail(QStringLiteral("❌ Could not determine default input device"), AudioServiceError::Code::noDevice);
    return *found;
}

void InputUnitBackend::fail(const QString& message, AudioServiceError::Code code) {
    log(message, LogLevel::error);
    throw AudioServiceError(code, message);
}

void InputUnitBackend::require(AudioStatus status, const QString& step) {
    if (status == 0)
        return;
    log(QStringLiteral("The sound system says: %1").arg(m_hardware.describe(status)), LogLevel::error);
    const auto message = QStringLiteral("❌ %1 failed (status=%2)").arg(step, osStatusDescription(status));
    if (!m_hardware.isPermissionDenied(status))
        fail(message);
    log(message, LogLevel::error);
    throw AudioServiceError(AudioServiceError::Code::permissionDenied);
}

void InputUnitBackend::open(const AsyncStream<AudioChunk>::Sink& sink) {
    const auto device = chooseDevice();
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
    setCaptured(context, device.name, device.startsSlowly);
    require(
        unit.setInputCallback([context](const float* samples, size_t frames) { context->handleInput(samples, frames); },
                              lossHandler()),
        QStringLiteral("SetInputCallback"));
    require(unit.initialize(), QStringLiteral("AudioUnitInitialize"));
    require(unit.start(), QStringLiteral("AudioOutputUnitStart"));
}

void InputUnitBackend::close(bool wasCapturing) {
    if (wasCapturing)
        m_audioUnit->uninitialize();
    m_audioUnit.reset();
}

std::vector<AudioDevice> InputUnitBackend::devices() {
    const auto standard = m_hardware.defaultInputDevice();
    std::vector<AudioDevice> result;
    for (const auto& device : m_hardware.inputDevices())
        if (!device.isMonitor)
            result.push_back({device.id, device.name, device.id == standard});
    return result;
}

std::optional<AudioDevice> InputUnitBackend::defaultDevice() {
    for (auto& device : devices())
        if (device.isDefault)
            return device;
    return std::nullopt;
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

AUHALAudioService::AUHALAudioService(AudioHardware& hardware)
    : CapturingAudioService(
          [&](SerialExecutor& executor) { return std::make_shared<InputUnitBackend>(hardware, executor); }) {}

} // namespace quillo
