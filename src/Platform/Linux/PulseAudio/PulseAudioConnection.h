#pragma once

#include "Platform/AudioHardware.h"

#include <pulse/pulseaudio.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace quillo {

/// The properties of a source that a capture needs.
struct PulseAudioSource {
    AudioHardwareDevice device;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    pa_channel_position_t firstChannel = PA_CHANNEL_POSITION_MONO;
    uint32_t bitsPerSample = 0;
};

/// Holds the main loop's lock, so that no callback of the library runs.
class PulseAudioLock {
public:
    explicit PulseAudioLock(pa_threaded_mainloop* loop) : m_loop(loop) { pa_threaded_mainloop_lock(m_loop); }
    ~PulseAudioLock() { pa_threaded_mainloop_unlock(m_loop); }
    PulseAudioLock(const PulseAudioLock&) = delete;
    PulseAudioLock& operator=(const PulseAudioLock&) = delete;

private:
    pa_threaded_mainloop* m_loop;
};

/// The connection to the sound server: connects, keeps the list of sources, reconnects. Thread-safe.
class PulseAudioConnection {
public:
    PulseAudioConnection();
    ~PulseAudioConnection();
    PulseAudioConnection(const PulseAudioConnection&) = delete;
    PulseAudioConnection& operator=(const PulseAudioConnection&) = delete;

    [[nodiscard]] pa_threaded_mainloop* loop() const { return m_loop; }
    /// With the lock held; null while there is no connection.
    [[nodiscard]] pa_context* readyContext() const { return m_isReady ? m_context : nullptr; }

    /// With the lock held: requests the list of sources again. The next caller that reads the list waits for the
    /// answer.
    void refreshIfReady();

    /// Waits until the list of sources is up to date, at most for the deadline of a hung or starting server; false when
    /// there is no server.
    bool waitUntilReady();
    [[nodiscard]] bool isReady();
    std::vector<PulseAudioSource> sources();
    std::optional<QString> defaultSource();
    std::optional<AudioOutputDevice> defaultOutput();
    /// See `AudioHardware::setDefaultOutputHandler`.
    void setDefaultOutputHandler(std::function<void()> handler);

private:
    void connect();
    void scheduleReconnect();
    void handleState();
    void refresh();
    void publish();
    void forget();

    pa_threaded_mainloop* m_loop;
    // Guarded by the loop's lock.
    pa_context* m_context = nullptr;
    pa_time_event* m_reconnect = nullptr;
    bool m_isReady = false;
    uint32_t m_failures = 0;
    std::vector<PulseAudioSource> m_listing;
    std::vector<AudioOutputDevice> m_outputListing;
    std::function<void()> m_defaultOutputHandler;

    // Read by callers without the loop's lock.
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isListed = false;
    bool m_hasFailed = false; ///< the latest attempt to connect failed, and no new one has begun
    int m_refreshes = 0;      ///< pending requests for the list
    std::vector<PulseAudioSource> m_sources;
    QString m_defaultSource;
    QString m_defaultSink;
    std::optional<AudioOutputDevice> m_defaultOutput;
};

} // namespace quillo
