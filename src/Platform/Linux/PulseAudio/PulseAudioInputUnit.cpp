#include "Platform/Linux/PulseAudio/PulseAudioInputUnit.h"

#include <array>

namespace quillo {

namespace {

using namespace std::chrono_literals;

/// How long the server may take to open the device.
constexpr auto openDeadline = 1000ms;
/// A headset changes its profile first.
constexpr auto slowOpenDeadline = 5000ms;
/// Audio per delivery: short, so that the first word and the waveform appear without delay.
constexpr auto fragment = 10ms;
/// The largest portion passed to one callback.
constexpr size_t portionFrames = 4096;
/// Two channels are one microphone, and are mixed. More are the inputs of an interface: the microphone is on the first,
/// and a mix with the unused ones would be too quiet. What an output plays is on all of its channels.
constexpr uint32_t mostMixedChannels = 2;
/// Delivered for a hole in the stream.
constexpr std::array<float, portionFrames> silence{};

/// The context's error; a stream that ended without an error code still counts as failed.
AudioStatus failureOf(pa_context* context) {
    const int error = pa_context_errno(context);
    return error > 0 ? error : PA_ERR_UNKNOWN;
}

class PulseAudioInputUnit final : public AudioInputUnit {
public:
    explicit PulseAudioInputUnit(std::shared_ptr<PulseAudioConnection> connection)
        : m_connection(std::move(connection)) {}
    ~PulseAudioInputUnit() override { close(); }

    AudioStatus enableInput() override { return m_connection->waitUntilReady() ? 0 : PA_ERR_CONNECTIONREFUSED; }
    AudioStatus disableOutput() override { return 0; }

    AudioStatus setCurrentDevice(const QString& deviceId) override {
        for (auto& source : m_connection->sources())
            if (source.device.id == deviceId) {
                m_source = std::move(source);
                return 0;
            }
        return PA_ERR_NOENTITY;
    }

    AudioStatus getDeviceFormat(AudioStreamFormat& format) override {
        if (m_source.sampleRate == 0)
            return PA_ERR_BADSTATE;
        format.sampleRate = m_source.sampleRate;
        format.channels = m_source.channels;
        format.bitsPerChannel = m_source.bitsPerSample;
        format.bytesPerFrame = m_source.bitsPerSample / 8 * m_source.channels;
        format.framesPerPacket = 1;
        return 0;
    }

    AudioStatus setClientFormat(double sampleRate) override {
        m_format.format = PA_SAMPLE_FLOAT32NE;
        m_format.channels = 1;
        m_format.rate = static_cast<uint32_t>(sampleRate);
        return pa_sample_spec_valid(&m_format) ? 0 : PA_ERR_INVALID;
    }

    AudioStatus setInputCallback(InputCallback input, LostCallback lost) override {
        m_input = std::move(input);
        m_lost = std::move(lost);
        return 0;
    }

    AudioStatus initialize() override {
        const PulseAudioLock lock(m_connection->loop());
        auto* const context = m_connection->readyContext();
        if (!context)
            return PA_ERR_CONNECTIONTERMINATED;
        const pa_channel_map first{.channels = 1, .map = {m_source.firstChannel}};
        m_stream = pa_stream_new(context, "Dictation", &m_format, takesFirstChannel() ? &first : nullptr);
        if (!m_stream)
            return pa_context_errno(context);
        pa_stream_set_state_callback(
            m_stream, [](pa_stream*, void* self) { static_cast<PulseAudioInputUnit*>(self)->handleState(); }, this);
        pa_stream_set_read_callback(
            m_stream, [](pa_stream*, size_t, void* self) { static_cast<PulseAudioInputUnit*>(self)->takeReadable(); },
            this);
        return 0;
    }

    AudioStatus start() override {
        {
            const PulseAudioLock lock(m_connection->loop());
            auto* const context = m_connection->readyContext();
            if (!m_stream || !context)
                return PA_ERR_BADSTATE;
            if (std::exchange(m_isPaused, false))
                return cork(false) ? 0 : failureOf(context);
            pa_buffer_attr attributes{};
            attributes.maxlength = attributes.tlength = attributes.prebuf = attributes.minreq = UINT32_MAX;
            attributes.fragsize =
                static_cast<uint32_t>(pa_usec_to_bytes(std::chrono::microseconds(fragment).count(), &m_format));
            // If the server moved the stream, it would record a device that the user did not choose, such as the
            // loudspeakers.
            const auto flags = static_cast<pa_stream_flags_t>(
                PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE | PA_STREAM_START_UNMUTED |
                (takesFirstChannel() ? PA_STREAM_NO_REMIX_CHANNELS : PA_STREAM_NOFLAGS));
            if (pa_stream_connect_record(m_stream, m_source.device.id.toUtf8().constData(), &attributes, flags) < 0)
                return pa_context_errno(context);
        }
        std::unique_lock lock(m_mutex);
        const auto deadline = m_source.device.startsSlowly ? slowOpenDeadline : openDeadline;
        if (!m_changed.wait_for(lock, deadline, [this] { return m_isOpen || m_failure != 0; }))
            return PA_ERR_TIMEOUT;
        return m_failure;
    }

    AudioStatus pause() override {
        const PulseAudioLock lock(m_connection->loop());
        if (!m_stream || pa_stream_get_state(m_stream) != PA_STREAM_READY)
            return PA_ERR_BADSTATE;
        m_isPaused = true;
        return cork(true) ? 0 : failureOf(pa_stream_get_context(m_stream));
    }

    AudioStatus stop() override {
        const PulseAudioLock lock(m_connection->loop());
        if (!m_stream)
            return PA_ERR_BADSTATE;
        // While we hold the lock no callback runs, and after this call none follows.
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        takeReadable();
        pa_stream_disconnect(m_stream);
        return 0;
    }

    AudioStatus uninitialize() override {
        close();
        return 0;
    }

private:
    [[nodiscard]] bool takesFirstChannel() const {
        return m_source.channels > mostMixedChannels && !m_source.device.isMonitor;
    }

    void close() {
        const PulseAudioLock lock(m_connection->loop());
        if (!m_stream)
            return;
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
        m_stream = nullptr;
    }

    void handleState() {
        const auto state = pa_stream_get_state(m_stream);
        if (PA_STREAM_IS_GOOD(state) && state != PA_STREAM_READY)
            return;
        bool wasOpen = false;
        {
            const std::lock_guard lock(m_mutex);
            wasOpen = std::exchange(m_isOpen, state == PA_STREAM_READY);
            if (state != PA_STREAM_READY)
                m_failure = failureOf(pa_stream_get_context(m_stream));
        }
        m_changed.notify_all();
        if (state == PA_STREAM_READY)
            return;
        // The event that the source is gone arrives later. Refresh now, so that the next open does not find the old
        // source.
        m_connection->refreshIfReady();
        if (wasOpen && m_lost)
            m_lost(QString::fromUtf8(pa_strerror(m_failure)));
    }

    /// With the lock held.
    bool cork(bool corked) {
        auto* const operation = pa_stream_cork(m_stream, corked ? 1 : 0, nullptr, nullptr);
        if (operation)
            pa_operation_unref(operation);
        return operation != nullptr;
    }

    void takeReadable() {
        const void* data = nullptr;
        size_t bytes = 0;
        while (pa_stream_peek(m_stream, &data, &bytes) == 0 && bytes > 0) {
            const size_t frames = m_isPaused ? 0 : bytes / sizeof(float);
            // After a stall a lot of audio arrives at once: pass it on in portions.
            for (size_t at = 0; at < frames; at += portionFrames)
                m_input(data ? static_cast<const float*>(data) + at : silence.data(),
                        std::min(frames - at, portionFrames));
            pa_stream_drop(m_stream);
        }
    }

    std::shared_ptr<PulseAudioConnection> m_connection;
    PulseAudioSource m_source;
    pa_sample_spec m_format{};
    InputCallback m_input;
    LostCallback m_lost;
    pa_stream* m_stream = nullptr;
    bool m_isPaused = false; ///< guarded by the loop's lock

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = false;
    AudioStatus m_failure = 0;
};

} // namespace

std::unique_ptr<AudioInputUnit> makePulseAudioInputUnit(std::shared_ptr<PulseAudioConnection> connection) {
    return std::make_unique<PulseAudioInputUnit>(std::move(connection));
}

} // namespace quillo
