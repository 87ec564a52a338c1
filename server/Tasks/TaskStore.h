#pragma once

#include "Storage/Database.h"
#include "Tasks/Task.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace quillo::server {

/// Uploaded work and its results in SQLite. Thread-safe; calls take a lock and touch the disk, so they belong on a
/// thread that may block. Every function throws DatabaseError. A user who became part of another is found under
/// either id.
class TaskStore {
public:
    using WallClock = std::function<std::chrono::system_clock::time_point()>;
    /// A repeated request for a fresh result within this time is taken for a retry of the first.
    static constexpr std::chrono::minutes retryWindow{10};

    TaskStore(const std::filesystem::path& file, WallClock clock);

    /// The task that already does, or did, what is asked for; empty when there is none.
    std::optional<Task> match(const TaskRequest& request);
    /// The task whose recognition of the same audio by the same recogniser ended the server, whoever asked for it.
    std::optional<Task> crashed(const TaskRequest& request);
    /// Empty when the user has been removed.
    std::optional<Task> add(const TaskRequest& request);

    /// A user's task; empty when it is unknown or another user's.
    std::optional<Task> find(const std::string& userId, const std::string& id);
    /// The newest diarization of a user's recording.
    std::optional<Task> findDiarization(const std::string& userId, const std::string& recordingId);
    /// Tasks that are queued or running, oldest first.
    std::vector<Task> unfinished();
    [[nodiscard]] int unfinishedOf(const std::string& userId);

    /// Counts an attempt.
    void begin(const std::string& id);
    /// Puts it back; `uncount` takes the attempt back, which was not the task's fault.
    void requeue(const std::string& id, bool uncount);
    /// The end of a task: its audio is not needed any more.
    void complete(const std::string& id, const std::string& result);
    void fail(const std::string& id, int status, const std::string& code, const std::string& error);

    /// Replaces what was kept for the same recording.
    void keepLive(const LiveTranscript& transcript);
    std::optional<LiveTranscript> findLive(const std::string& userId, const std::string& recordingId);
    /// True when the live transcript was made from samples with this hash.
    bool liveMatches(const LiveTranscript& transcript, const Sha256Value& sampleHash);

    /// True when something is kept of the user.
    bool knowsUser(const std::string& userId);
    /// Throws DatabaseError when the database cannot be written.
    void check();

    /// Forgets results older than `results`, and gives up work older than `audio`. Returns the audio files that are
    /// not needed any more.
    std::vector<std::string> expire(std::chrono::seconds results, std::chrono::seconds audio);
    /// Forgets all of a user, also what is still to come of them; returns audio files as `expire` does.
    std::vector<std::string> removeUser(const std::string& userId);
    /// Makes everything of `from` belong to `to`, also what is still to come. What both have of a recording, `to`
    /// keeps. When `to` has been removed, `from` is too, and audio files are returned as `expire` does.
    std::vector<std::string> moveUser(const std::string& from, const std::string& to);

private:
    static Task read(const Statement& row);
    std::optional<Task> findOne(Statement& query);
    std::vector<std::string> audioFiles(Statement& query);
    /// The user who has what is of `userId` now; empty when they were removed.
    std::optional<std::string> ownerOf(const std::string& userId);
    std::vector<std::string> forgetUser(const std::string& userId);
    [[nodiscard]] int64_t now() const;

    std::mutex m_mutex;
    WallClock m_clock;
    Database m_database;
};

} // namespace quillo::server
