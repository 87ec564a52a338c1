#pragma once

#include "Foundation/Json.h"
#include "Tasks/FairQueue.h"
#include "Tasks/StoredTranscript.h"
#include "Tasks/TaskStore.h"
#include "Transcription/Recogniser.h"
#include "Uploads/Spool.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <stop_token>
#include <thread>
#include <unordered_map>

namespace quillo::server {

class UploadError;
class UploadForm;

struct TaskSettings {
    std::filesystem::path dataFolder;
    int64_t maxSpoolBytes = int64_t{10} * 1000 * 1000 * 1000;
    int64_t maxFileBytes = int64_t{1500} * 1000 * 1000;
    /// Files recognised at once.
    unsigned workers = 1;
    int maxTasksPerUser = 32; ///< queued or running
    std::chrono::seconds resultLifetime = std::chrono::hours(24 * 8);
    std::chrono::seconds audioLifetime = std::chrono::hours(48); ///< for audio that could not be recognised so far
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(5);
};

/// Recognises uploaded files in the background. A task survives a disconnected client and a restart of the server: its
/// result is stored in the database, where a repeated request finds it. Thread-safe.
class TaskService {
public:
    /// Opens the database and the spool. Throws std::runtime_error.
    TaskService(TaskSettings settings, std::shared_ptr<Recogniser> recogniser, TaskStore::WallClock clock);
    /// Stops.
    ~TaskService();
    TaskService(const TaskService&) = delete;
    TaskService& operator=(const TaskService&) = delete;

    /// Resumes the tasks of an earlier run and begins to work.
    void start();
    /// Abandons running recognitions, which the next start repeats, and returns when the workers have ended.
    void stop();

    /// A form for an upload to this server. Throws UploadError.
    [[nodiscard]] std::unique_ptr<UploadForm> form(const std::string& contentType) const;

    /// Creates a task from a finished form and takes over its audio; or finds an existing task for the same request, or
    /// the live transcript of the same audio. Throws UploadError, DatabaseError.
    Task submit(const std::string& userId, TaskKind kind, UploadForm& form);

    /// A file in which a meeting's audio is kept while it is streamed. Throws UploadError.
    [[nodiscard]] std::unique_ptr<SpoolFile> newAudio() const { return m_spool->create(); }
    /// Creates a task that separates the speakers of a meeting, and takes over its audio. Throws UploadError,
    /// DatabaseError.
    Task submitMeeting(TaskRequest request, const StoredTranscript& transcript, SpoolFile& audio);
    /// Records why the speakers of a meeting cannot be separated, for the client that asks. Throws UploadError,
    /// DatabaseError.
    Task recordFailedMeeting(TaskRequest request, const UploadError& cause);

    /// Calls `done` once when the task has ended: at once, or from a worker. Never if the server stops before.
    void whenOver(const std::string& userId, const std::string& id, std::function<void(const Task&)> done);

    std::optional<Task> find(const std::string& userId, const std::string& id) { return m_store.find(userId, id); }
    std::optional<Task> findDiarization(const std::string& userId, const std::string& recordingId) {
        return m_store.findDiarization(userId, recordingId);
    }
    /// The progress of a running task, 0 to 1.
    [[nodiscard]] double progress(const std::string& id) const;

    /// Stores the result of a live session. Never throws: a result that could not be stored is recognised again if
    /// needed.
    void keepLive(const LiveTranscript& transcript);
    /// Deletes all data of a user and stops their tasks.
    void removeUser(const std::string& userId);
    /// Transfers all data of `from` to `to`; running tasks continue.
    void moveUser(const std::string& from, const std::string& to);

    /// True when the user has stored data or running tasks.
    bool knowsUser(const std::string& userId) { return m_store.knowsUser(userId); }
    /// Throws DatabaseError when the database cannot be written.
    void check() { m_store.check(); }

    [[nodiscard]] const Spool& spool() const { return *m_spool; }

private:
    struct Running {
        std::string userId;
        std::stop_source stop;
        std::atomic<double> progress = 0;
    };

    Task enqueue(const TaskRequest& request, SpoolFile& audio, const std::string& transcript = {});
    Task addTask(const TaskRequest& request, const std::string& transcript);
    void work();
    Json resultOf(const Task& task, Running& running);
    void perform(const Task& task, Running& running);
    void runTask(const FairQueue::Item& item);
    void finished(const std::string& userId, const std::string& id);
    void expire();
    std::optional<Task> answerFromLive(const std::string& userId, const UploadForm& form,
                                       const std::filesystem::path& audio);

    const TaskSettings m_settings;
    std::shared_ptr<Recogniser> m_recogniser;
    TaskStore m_store;
    std::shared_ptr<Spool> m_spool;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    FairQueue m_queue;
    std::unordered_map<std::string, std::shared_ptr<Running>> m_running;
    std::unordered_map<std::string, std::vector<std::function<void(const Task&)>>> m_waiting;
    std::chrono::steady_clock::time_point m_nextExpiry;
    std::chrono::steady_clock::time_point m_busyUntil; ///< the recogniser has no free place before this time
    bool m_stopping = false;
    std::mutex m_submitMutex; ///< prevents two equal requests from both creating a task
    std::vector<std::thread> m_workers;
};

} // namespace quillo::server
