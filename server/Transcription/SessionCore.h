#pragma once

#include "Transcription/Recogniser.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace quillo::server {

/// Shared by a session and the thread that serves it. Thread-safe.
class SessionCore {
public:
    enum class Take { audio, finished, abandoned, nothing };

    /// `wake`, if given, is called after every change of the inbox, from the thread that made it.
    explicit SessionCore(std::shared_ptr<RecognitionListener> listener, std::function<void()> wake = {});

    void push(std::span<const int16_t> samples);
    void finish();
    /// After it returns, no call to the listener is running, except the one that called this, and none follows.
    void abandon();
    [[nodiscard]] bool abandoned() const { return m_abandoned.load(std::memory_order_acquire); }

    /// Moves at most `limit` samples into `samples`, waiting for the first. Returns "finished" only once all were
    /// taken.
    Take wait(std::vector<int16_t>& samples, size_t limit);
    /// The same without waiting; "nothing" when there are none yet.
    Take poll(std::vector<int16_t>& samples, size_t limit);

    /// Marks samples as recognised and removes them from the backlog.
    void recognised(size_t samples) { m_recognised.fetch_add(samples, std::memory_order_relaxed); }
    [[nodiscard]] double backlogSeconds() const;

    /// Calls the listener, unless the session was abandoned.
    void tell(const std::function<void(RecognitionListener&)>& call);

private:
    Take take(std::vector<int16_t>& samples, size_t limit);

    std::function<void()> m_wake;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<int16_t> m_samples;
    size_t m_read = 0;
    bool m_finished = false;
    std::atomic<bool> m_abandoned = false;
    std::atomic<uint64_t> m_pushed = 0;
    std::atomic<uint64_t> m_recognised = 0;
    // Recursive: a listener may destroy its session from inside a call.
    std::recursive_mutex m_listenerMutex;
    std::shared_ptr<RecognitionListener> m_listener;
};

/// The session handed to the caller: forwards to the core, abandons it when destroyed.
std::unique_ptr<RecognitionSession> makeSession(std::shared_ptr<SessionCore> core);

/// The threads of a recogniser, one per session. Destroying it abandons every session and joins. Thread-safe.
class WorkerGroup {
public:
    WorkerGroup() = default;
    WorkerGroup(const WorkerGroup&) = delete;
    WorkerGroup& operator=(const WorkerGroup&) = delete;
    ~WorkerGroup();

    void start(std::shared_ptr<SessionCore> core, std::function<void()> work);

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<SessionCore> core;
        bool done = false;
    };

    std::mutex m_mutex;
    std::list<Worker> m_workers;
};

} // namespace quillo::server
