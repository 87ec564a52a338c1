#include "Platform/Linux/PulseAudio/PulseAudioConnection.h"

#include "Core/Log.h"
#include "Platform/Linux/PulseAudio/OutputType.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace quillo {

namespace {

/// How long a caller waits for a server that is starting or hangs.
constexpr std::chrono::milliseconds readyDeadline(300);
constexpr uint64_t firstReconnectDelay = 250 * PA_USEC_PER_MSEC;
constexpr uint64_t longestReconnectDelay = 10 * PA_USEC_PER_SEC;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("PulseAudio"));
}

PulseAudioSource describe(const pa_source_info& info) {
    PulseAudioSource source;
    source.device.id = QString::fromUtf8(info.name);
    source.device.name = info.description ? QString::fromUtf8(info.description) : QStringLiteral("Unknown");
    source.device.isMonitor = info.monitor_of_sink != PA_INVALID_INDEX;
    const char* bus = pa_proplist_gets(info.proplist, PA_PROP_DEVICE_BUS);
    source.device.startsSlowly = bus && QLatin1String(bus) == QLatin1String("bluetooth");
    source.sampleRate = info.sample_spec.rate;
    source.channels = info.sample_spec.channels;
    source.firstChannel = info.channel_map.map[0];
    source.bitsPerSample = static_cast<uint32_t>(pa_sample_size(&info.sample_spec)) * 8;
    return source;
}

AudioOutputDevice describe(const pa_sink_info& info) {
    const auto property = [&](const char* key) { return pa_proplist_gets(info.proplist, key); };
    AudioOutputDevice output;
    output.id = QString::fromUtf8(info.name);
    output.name = info.description ? QString::fromUtf8(info.description) : QStringLiteral("Unknown");
    output.monitorId = QString::fromUtf8(info.monitor_source_name);
    output.type = outputType({.portType = info.active_port ? info.active_port->type : 0U,
                              .port = info.active_port ? info.active_port->name : nullptr,
                              .formFactor = property(PA_PROP_DEVICE_FORM_FACTOR),
                              .bus = property(PA_PROP_DEVICE_BUS)});
    return output;
}

void release(pa_operation* operation) {
    if (operation)
        pa_operation_unref(operation);
}

} // namespace

PulseAudioConnection::PulseAudioConnection() : m_loop(pa_threaded_mainloop_new()) {
    if (!m_loop)
        throw std::runtime_error("no main loop for the sound server");
    pa_threaded_mainloop_set_name(m_loop, "quillo-audio");
    connect();
    if (pa_threaded_mainloop_start(m_loop) < 0)
        throw std::runtime_error("the main loop of the sound server did not start");
}

PulseAudioConnection::~PulseAudioConnection() {
    pa_threaded_mainloop_stop(m_loop);
    if (m_reconnect)
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_reconnect);
    if (m_context) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
    }
    pa_threaded_mainloop_free(m_loop);
}

void PulseAudioConnection::connect() {
    if (m_context) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
    }
    // Left over from an interrupted answer.
    m_listing.clear();
    m_outputListing.clear();
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "Quillo");
    pa_context_set_state_callback(
        m_context, [](pa_context*, void* self) { static_cast<PulseAudioConnection*>(self)->handleState(); }, this);
    // NOAUTOSPAWN: starting the sound server is the session's task, not ours.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        scheduleReconnect();
}

void PulseAudioConnection::scheduleReconnect() {
    forget();
    if (m_reconnect)
        return;
    const auto delay = std::min(firstReconnectDelay << std::min(m_failures, 10U), longestReconnectDelay);
    if (m_failures++ == 0)
        log(QStringLiteral("⚠️ No sound server: %1. Reconnecting automatically")
                .arg(QString::fromUtf8(pa_strerror(pa_context_errno(m_context)))),
            LogLevel::warn);
    m_reconnect = pa_context_rttime_new(
        m_context, pa_rtclock_now() + delay,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* pointer) {
            auto* const self = static_cast<PulseAudioConnection*>(pointer);
            api->time_free(event);
            self->m_reconnect = nullptr;
            self->connect();
        },
        this);
}

void PulseAudioConnection::handleState() {
    switch (pa_context_get_state(m_context)) {
    case PA_CONTEXT_READY:
        if (m_failures > 0)
            log(QStringLiteral("✅ The sound server is back"));
        m_failures = 0;
        m_isReady = true;
        {
            const std::lock_guard lock(m_mutex);
            m_hasFailed = false;
        }
        pa_context_set_subscribe_callback(
            m_context,
            [](pa_context*, pa_subscription_event_type_t, uint32_t, void* self) {
                static_cast<PulseAudioConnection*>(self)->refresh();
            },
            this);
        release(pa_context_subscribe(m_context,
                                     static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SOURCE |
                                                                         PA_SUBSCRIPTION_MASK_SINK |
                                                                         PA_SUBSCRIPTION_MASK_SERVER),
                                     nullptr, nullptr));
        refresh();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        m_isReady = false;
        scheduleReconnect();
        break;
    default:
        break;
    }
}

void PulseAudioConnection::refresh() {
    release(pa_context_get_server_info(
        m_context,
        [](pa_context*, const pa_server_info* info, void* pointer) {
            auto* const self = static_cast<PulseAudioConnection*>(pointer);
            const std::lock_guard lock(self->m_mutex);
            self->m_defaultSource = info ? QString::fromUtf8(info->default_source_name) : QString();
            self->m_defaultSink = info ? QString::fromUtf8(info->default_sink_name) : QString();
        },
        this));
    // Answers arrive in the order of the requests: when the list of sources is complete, the rest is known too.
    release(pa_context_get_sink_info_list(
        m_context,
        [](pa_context*, const pa_sink_info* info, int, void* pointer) {
            if (info)
                static_cast<PulseAudioConnection*>(pointer)->m_outputListing.push_back(describe(*info));
        },
        this));
    auto* const listing = pa_context_get_source_info_list(
        m_context,
        [](pa_context*, const pa_source_info* info, int end, void* pointer) {
            auto* const self = static_cast<PulseAudioConnection*>(pointer);
            if (info)
                self->m_listing.push_back(describe(*info));
            if (end != 0)
                self->publish();
        },
        this);
    if (!listing)
        return;
    release(listing);
    const std::lock_guard lock(m_mutex);
    ++m_refreshes;
}

void PulseAudioConnection::refreshIfReady() {
    if (m_isReady)
        refresh();
}

void PulseAudioConnection::publish() {
    bool outputChanged = false;
    {
        const std::lock_guard lock(m_mutex);
        m_sources = std::exchange(m_listing, {});
        const auto outputs = std::exchange(m_outputListing, {});
        const auto found = std::find_if(outputs.begin(), outputs.end(),
                                        [this](const auto& output) { return output.id == m_defaultSink; });
        auto output = found == outputs.end() ? std::nullopt : std::optional(*found);
        outputChanged = output != m_defaultOutput;
        m_defaultOutput = std::move(output);
        m_isListed = true;
        --m_refreshes;
    }
    m_changed.notify_all();
    if (outputChanged && m_defaultOutputHandler)
        m_defaultOutputHandler();
}

void PulseAudioConnection::forget() {
    {
        const std::lock_guard lock(m_mutex);
        m_isListed = false;
        m_hasFailed = true;
        m_refreshes = 0;
        m_sources.clear();
        m_defaultSource.clear();
        m_defaultOutput.reset();
    }
    m_changed.notify_all();
}

bool PulseAudioConnection::waitUntilReady() {
    std::unique_lock lock(m_mutex);
    if (m_hasFailed) {
        // A caller needs the connection now, so do not wait for the next scheduled attempt.
        m_hasFailed = false;
        lock.unlock();
        {
            const PulseAudioLock loopLock(m_loop);
            if (m_reconnect)
                pa_context_rttime_restart(m_context, m_reconnect, pa_rtclock_now());
        }
        lock.lock();
    }
    m_changed.wait_for(lock, readyDeadline, [this] { return (m_isListed && m_refreshes == 0) || m_hasFailed; });
    return m_isListed;
}

bool PulseAudioConnection::isReady() {
    const std::lock_guard lock(m_mutex);
    return m_isListed;
}

std::vector<PulseAudioSource> PulseAudioConnection::sources() {
    waitUntilReady();
    const std::lock_guard lock(m_mutex);
    return m_sources;
}

std::optional<AudioOutputDevice> PulseAudioConnection::defaultOutput() {
    waitUntilReady();
    const std::lock_guard lock(m_mutex);
    return m_defaultOutput;
}

void PulseAudioConnection::setDefaultOutputHandler(std::function<void()> handler) {
    const PulseAudioLock lock(m_loop);
    m_defaultOutputHandler = std::move(handler);
}

std::optional<QString> PulseAudioConnection::defaultSource() {
    waitUntilReady();
    const std::lock_guard lock(m_mutex);
    const auto isMicrophone = [](const PulseAudioSource& source) { return !source.device.isMonitor; };
    const auto chosen = std::find_if(m_sources.begin(), m_sources.end(), [this](const PulseAudioSource& source) {
        return source.device.id == m_defaultSource;
    });
    if (chosen != m_sources.end() && isMicrophone(*chosen))
        return chosen->device.id;
    // Without a microphone the server's default can be a monitor, which would record the loudspeakers.
    const auto any = std::find_if(m_sources.begin(), m_sources.end(), isMicrophone);
    return any == m_sources.end() ? std::nullopt : std::optional(any->device.id);
}

} // namespace quillo
