#pragma once

#include "Platform/AudioHardware.h"

#include <pulse/pulseaudio.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

namespace quillo {

/// A source of the server, as far as a capture needs it.
struct PulseAudioSource {
    AudioHardwareDevice device;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    uint32_t bitsPerSample = 0;
};

/// Holds the main loop's lock: what the library does meanwhile waits.
class PulseAudioLock {
public:
    explicit PulseAudioLock(pa_threaded_mainloop* loop) : m_loop(loop) { pa_threaded_mainloop_lock(m_loop); }
    ~PulseAudioLock() { pa_threaded_mainloop_unlock(m_loop); }
    PulseAudioLock(const PulseAudioLock&) = delete;
    PulseAudioLock& operator=(const PulseAudioLock&) = delete;

private:
    pa_threaded_mainloop* m_loop;
};

/// The connection to the sound server: connects, keeps the list of sources, connects again. Thread-safe.
class PulseAudioConnection {
public:
    PulseAudioConnection();
    ~PulseAudioConnection();
    PulseAudioConnection(const PulseAudioConnection&) = delete;
    PulseAudioConnection& operator=(const PulseAudioConnection&) = delete;

    [[nodiscard]] pa_threaded_mainloop* loop() const { return m_loop; }
    /// With the lock held; null while there is no connection.
    [[nodiscard]] pa_context* readyContext() const { return m_isReady ? m_context : nullptr; }

    /// With the lock held: asks for the sources again. Whoever asks for them next waits for the answer.
    void refreshIfReady();

    /// Waits until the list of sources is what the server says now, at most for the deadline of a hung or starting
    /// server; false when there is none.
    bool waitUntilReady();
    [[nodiscard]] bool isReady();
    std::vector<PulseAudioSource> sources();
    std::optional<QString> defaultSource();

private:
    void connect();
    void scheduleReconnect();
    void handleState();
    void refresh();
    void publish();
    void forget();

    pa_threaded_mainloop* m_loop;
    // With the loop's lock held.
    pa_context* m_context = nullptr;
    pa_time_event* m_reconnect = nullptr;
    bool m_isReady = false;
    uint32_t m_failures = 0;
    std::vector<PulseAudioSource> m_listing;

    // What callers read without the loop's lock.
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isListed = false;
    bool m_hasFailed = false; ///< the latest attempt to connect, and none has been made since
    int m_refreshes = 0;      ///< questions for the list that are not answered yet
    std::vector<PulseAudioSource> m_sources;
    QString m_defaultSource;
};

} // namespace quillo
