#pragma once

#include "Storage/Database.h"
#include "Tasks/Task.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace quillo::server {

/// Uploaded work and its results in SQLite. Thread-safe; calls take a lock and access the disk, so call them on a
/// thread that may block. Every function throws DatabaseError. A merged user is found by both ids.
class TaskStore {
public:
    using WallClock = std::function<std::chrono::system_clock::time_point()>;
    /// A repeated request for a new result within this time counts as a retry of the first.
    static constexpr std::chrono::minutes retryWindow{10};

    /// `version` is that of this server.
    TaskStore(const std::filesystem::path& file, WallClock clock, std::string version = QUILLO_VERSION);

    /// An existing task, running or finished, for the same request; empty when there is none.
    std::optional<Task> match(const TaskRequest& request);
    /// The task, of any user, whose recognition of the same audio by the same recogniser crashed this version of the
    /// server.
    std::optional<Task> crashed(const TaskRequest& request);
    /// `transcript`, if not empty, is kept until the task ends. Empty when the user has been removed.
    std::optional<Task> add(const TaskRequest& request, const std::string& transcript = {});
    /// The transcript that came with an unfinished task; empty when there is none.
    std::string transcript(const std::string& id);

    /// A user's task; empty when it is unknown or another user's.
    std::optional<Task> find(const std::string& userId, const std::string& id);
    /// The newest diarization of a user's recording.
    std::optional<Task> findDiarization(const std::string& userId, const std::string& recordingId);
    /// Tasks that are queued or running, oldest first.
    std::vector<Task> unfinished();
    [[nodiscard]] int unfinishedOf(const std::string& userId);

    /// Counts an attempt.
    void begin(const std::string& id);
    /// Puts a task back into the queue; `uncount` does not count an attempt that the task did not cause to fail.
    void requeue(const std::string& id, bool uncount);
    /// Ends a task; its audio is not needed any more.
    void complete(const std::string& id, const std::string& result);
    void fail(const std::string& id, int status, const std::string& code, const std::string& error);

    /// Replaces an earlier entry for the same recording.
    void keepLive(const LiveTranscript& transcript);
    std::optional<LiveTranscript> findLive(const std::string& userId, const std::string& recordingId);
    /// True when the live transcript was made from samples with this hash.
    bool liveMatches(const LiveTranscript& transcript, const Sha256Value& sampleHash);

    /// True when data of the user is stored.
    bool knowsUser(const std::string& userId);
    /// Throws DatabaseError when the database cannot be written.
    void check();

    /// Deletes results older than `results` and gives up work older than `audio`. Returns the audio files that are no
    /// longer needed.
    std::vector<std::string> expire(std::chrono::seconds results, std::chrono::seconds audio);
    /// Deletes all data of a user, including later results; returns audio files like `expire`.
    std::vector<std::string> removeUser(const std::string& userId);
    /// Transfers all data of `from` to `to`, including later results. If both have data of a recording, that of `to` is
    /// kept. If `to` has been removed, removes `from` too and returns audio files like `expire`.
    std::vector<std::string> moveUser(const std::string& from, const std::string& to);

private:
    static Task read(const Statement& row);
    std::optional<Task> findOne(Statement& query);
    std::vector<std::string> audioFiles(Statement& query);
    /// The user who now owns the data of `userId`; empty when they were removed.
    std::optional<std::string> ownerOf(const std::string& userId);
    std::vector<std::string> forgetUser(const std::string& userId);
    [[nodiscard]] int64_t now() const;

    std::mutex m_mutex;
    WallClock m_clock;
    std::string m_version;
    Database m_database;
};

} // namespace quillo::server
