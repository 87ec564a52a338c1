#include "Services/SystemAudio/SystemAudioCapture.h"

#include "Core/Log.h"

#include <utility>

namespace quillo {

namespace {

using Code = SystemAudioError::Code;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("SystemAudio"));
}

QString word(OutputDeviceType type) {
    switch (type) {
    case OutputDeviceType::speakers:
        return QStringLiteral("speakers");
    case OutputDeviceType::headphones:
        return QStringLiteral("headphones");
    case OutputDeviceType::bluetooth:
        return QStringLiteral("bluetooth");
    case OutputDeviceType::unknown:
        break;
    }
    return QStringLiteral("unknown");
}

} // namespace

void SystemAudioCapture::Destination::set(std::shared_ptr<SystemAudioCaptureContext> context) {
    const std::lock_guard lock(m_mutex);
    m_context = std::move(context);
}

std::shared_ptr<SystemAudioCaptureContext> SystemAudioCapture::Destination::get() const {
    const std::lock_guard lock(m_mutex);
    return m_context;
}

SystemAudioCapture::SystemAudioCapture(AudioHardware& hardware, Executor& executor)
    : m_hardware(hardware), m_executor(executor) {}

std::optional<AudioOutputDevice> SystemAudioCapture::defaultOutput() {
    auto output = m_hardware.defaultOutputDevice();
    if (output)
        log(QStringLiteral("Default output device: %1 (type: %2)").arg(output->name, word(output->type)));
    return output;
}

AsyncStream<AudioChunk> SystemAudioCapture::start() {
    if (m_tap)
        throw SystemAudioError(Code::alreadyCapturing);
    log(QStringLiteral("Starting system audio capture..."));
    const auto output = defaultOutput();
    if (!output)
        throw SystemAudioError(m_hardware.isAvailable() ? Code::outputDeviceNotFound : Code::notAvailable);
    if (output->type == OutputDeviceType::speakers)
        throw SystemAudioError(Code::headphonesRequired);
    auto stream = makeStream();
    try {
        openMonitor(*output);
    } catch (...) {
        closeMonitor();
        endStream();
        throw;
    }
    log(QStringLiteral("System audio capture started successfully"));
    return stream;
}

AsyncStream<AudioChunk> SystemAudioCapture::makeStream() {
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    auto context = std::make_shared<SystemAudioCaptureContext>(sink);
    m_destination->set(context);
    m_latest->set(std::move(context));
    m_continuation = sink;
    sink.onTermination([weak = weak_from_this(), number = ++m_stream](StreamTermination reason) {
        const auto self = reason == StreamTermination::cancelled ? weak.lock() : nullptr;
        if (self)
            self->m_executor.post([weak, number] {
                const auto capture = weak.lock();
                if (capture && capture->m_stream == number && capture->m_continuation)
                    capture->stop();
            });
    });
    return std::move(stream);
}

void SystemAudioCapture::openMonitor(const AudioOutputDevice& output) {
    AudioStatus status = 0;
    const auto require = [this](AudioStatus result, Code code, const char* text) {
        if (result == 0)
            return;
        log(QString::fromLatin1(text) + m_hardware.describe(result), LogLevel::error);
        throw SystemAudioError(code, result);
    };
    constexpr auto tapFailed = "Failed to create process tap: ";
    m_tap = m_hardware.makeInputUnit(status);
    require(m_tap ? status : -1, Code::tapCreationFailed, tapFailed);
    auto& tap = *m_tap;
    require(tap.enableInput(), Code::tapCreationFailed, tapFailed);
    require(tap.setCurrentDevice(output.monitorId), Code::tapCreationFailed, tapFailed);
    AudioStreamFormat format;
    require(tap.getDeviceFormat(format), Code::tapCreationFailed, tapFailed);
    log(QStringLiteral("Tap format: %1Hz, %2").arg(format.sampleRate).arg(format.channels));
    require(tap.setClientFormat(format.sampleRate), Code::tapCreationFailed, tapFailed);
    m_tapSampleRate = format.sampleRate;
    const auto context = m_destination->get();
    try {
        context->beginOutput(m_tapSampleRate);
    } catch (const std::runtime_error& error) {
        log(QStringLiteral("Failed to create audio converter from %1Hz: %2")
                .arg(m_tapSampleRate)
                .arg(QString::fromUtf8(error.what())),
            LogLevel::error);
        throw SystemAudioError(Code::tapCreationFailed);
    }
    context->setMuted(output.type == OutputDeviceType::speakers);
    const auto take = [destination = m_destination](const float* samples, size_t frames) {
        if (const auto current = destination->get())
            current->processAudioBuffer(samples, frames, std::chrono::steady_clock::now());
    };
    const auto lost = [weak = weak_from_this(), number = ++m_monitor](const QString& reason) {
        if (const auto self = weak.lock())
            self->m_executor.post([weak, number, reason] {
                if (const auto capture = weak.lock())
                    capture->handleLost(number, reason);
            });
    };
    require(tap.setInputCallback(take, lost), Code::tapCreationFailed, tapFailed);
    require(tap.initialize(), Code::tapCreationFailed, tapFailed);
    require(tap.start(), Code::ioStartFailed, "Failed to start IO: ");
    m_output = output;
}

void SystemAudioCapture::closeMonitor() {
    if (!m_tap)
        return;
    ++m_monitor;
    m_tap->stop();
    m_tap->uninitialize();
    m_tap.reset();
    m_output.reset();
}

void SystemAudioCapture::pause() {
    if (!m_tap || !m_continuation)
        return;
    log(QStringLiteral("Pausing system audio delivery..."));
    const auto status = m_tap->pause();
    const auto context = m_destination->get();
    m_destination->set(nullptr);
    context->clearBuffer();
    endStream();
    if (status == 0) {
        log(QStringLiteral("System audio delivery paused"));
        return;
    }
    log(QStringLiteral("The monitor cannot be paused and is closed: %1").arg(m_hardware.describe(status)),
        LogLevel::warn);
    closeMonitor();
}

AsyncStream<AudioChunk> SystemAudioCapture::resume() {
    if (!m_tap) {
        log(QStringLiteral("No active tap — performing full startCapture()"));
        return start();
    }
    if (m_continuation)
        throw SystemAudioError(Code::alreadyCapturing);
    if (m_hardware.defaultOutputDevice() != m_output || m_output->type == OutputDeviceType::speakers) {
        closeMonitor();
        return start();
    }
    log(QStringLiteral("Resuming system audio delivery (reusing existing tap)"));
    auto stream = makeStream();
    m_destination->get()->beginOutput(m_tapSampleRate);
    if (const auto status = m_tap->start(); status != 0) {
        log(QStringLiteral("Failed to start IO on resume: %1").arg(m_hardware.describe(status)), LogLevel::error);
        closeMonitor();
        endStream();
        throw SystemAudioError(Code::ioStartFailed, status);
    }
    log(QStringLiteral("System audio delivery resumed"));
    return stream;
}

void SystemAudioCapture::stop() {
    if (!m_tap && !m_continuation)
        return;
    log(QStringLiteral("Stopping system audio capture..."));
    closeMonitor();
    endStream();
    log(QStringLiteral("System audio capture stopped"));
}

void SystemAudioCapture::endStream() {
    if (const auto context = m_destination->get()) {
        context->flush();
        log(QStringLiteral("System audio: %1").arg(context->statsSummary()));
    }
    m_destination->set(nullptr);
    // Move the sink out before finishing it: the end of the stream calls back into this object.
    if (const auto continuation = std::exchange(m_continuation, std::nullopt))
        continuation->finish();
}

void SystemAudioCapture::followOutput() {
    if (!m_continuation)
        return; // what is paused finds the new output when it is resumed
    const auto output = m_hardware.defaultOutputDevice();
    if (!output || output == m_output)
        return; // without an output there is nothing to record until the next one
    log(QStringLiteral("Default output device: %1 (type: %2)").arg(output->name, word(output->type)));
    if (output->type == OutputDeviceType::speakers)
        log(QStringLiteral("⚠️ Meeting mode: speakers detected — disabling system audio capture (would cause echo)"),
            LogLevel::warn);
    if (m_tap && m_output && m_output->monitorId == output->monitorId) {
        m_destination->get()->setMuted(output->type == OutputDeviceType::speakers);
        m_output = output;
        return;
    }
    closeMonitor();
    try {
        openMonitor(*output);
    } catch (const SystemAudioError& error) {
        // A device that is just being unplugged; the next change of the default output follows at once.
        log(QStringLiteral("The new output is not recorded: %1").arg(QString::fromUtf8(error.what())), LogLevel::error);
        closeMonitor();
    }
}

void SystemAudioCapture::handleLost(uint64_t monitor, const QString& reason) {
    if (monitor != m_monitor || !m_tap)
        return;
    log(QStringLiteral("⚠️ The output '%1' is gone (%2)").arg(m_output ? m_output->name : QString(), reason),
        LogLevel::warn);
    closeMonitor();
    followOutput();
}

std::optional<std::chrono::steady_clock::time_point> SystemAudioCapture::firstSampleAt() const {
    const auto context = m_latest->get();
    return context ? context->firstSampleAt() : std::nullopt;
}

} // namespace quillo
