#include "Tasks/TaskStore.h"

#include "Foundation/Encoding.h"
#include "Tasks/TaskSchema.h"

namespace quillo::server {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr std::string_view columns = "id, user_id, kind, recording_id, language, purpose, provider, audio_file, "
                                     "audio_bytes, status, attempts, result, error_status, error_code, error, "
                                     "transcript IS NOT NULL";

std::string select(std::string_view condition) {
    return "SELECT " + std::string(columns) + " FROM tasks WHERE " + std::string(condition);
}

/// Longer than any work that was begun for a user.
constexpr auto formerUserLifetime = std::chrono::hours(24 * 30);

int64_t number(TaskStatus status) { return static_cast<int64_t>(status); }

} // namespace

TaskStore::TaskStore(const std::filesystem::path& file, WallClock clock, std::string version)
    : m_clock(std::move(clock)), m_version(std::move(version)), m_database(file, taskMigrations()) {}

int64_t TaskStore::now() const { return duration_cast<milliseconds>(m_clock().time_since_epoch()).count(); }

Task TaskStore::read(const Statement& row) {
    Task task;
    task.id = row.text(0);
    task.request.userId = row.text(1);
    task.request.kind = static_cast<TaskKind>(row.integer(2));
    task.request.recordingId = row.text(3);
    task.request.language = row.text(4);
    task.request.purpose = row.text(5);
    task.request.provider = row.text(6);
    task.request.audioFile = row.text(7);
    task.request.audioBytes = row.integer(8);
    task.status = static_cast<TaskStatus>(row.integer(9));
    task.attempts = static_cast<int>(row.integer(10));
    task.result = row.text(11);
    task.errorStatus = static_cast<int>(row.integer(12));
    task.errorCode = row.text(13);
    task.error = row.text(14);
    task.request.hasTranscript = row.integer(15) != 0;
    return task;
}

std::optional<Task> TaskStore::findOne(Statement& query) {
    if (!query.step())
        return std::nullopt;
    return read(query);
}

std::optional<Task> TaskStore::match(const TaskRequest& request) {
    const std::scoped_lock lock(m_mutex);
    // A failed task does not match: its audio is gone, and the client wants another attempt.
    std::string condition = "user_id = ?1 AND recording_id = ?2 AND kind = ?3 AND language = ?4 AND provider = ?5 AND "
                            "audio_hash = ?6 AND status != ?7";
    if (request.wantsFreshResult())
        condition += " AND purpose = ?8 AND (status != ?9 OR updated_at >= ?10)";
    Statement query(m_database, select(condition + " ORDER BY created_at DESC LIMIT 1"));
    query.bind(1, ownerOf(request.userId).value_or(""))
        .bind(2, request.recordingId)
        .bind(3, static_cast<int64_t>(request.kind));
    query.bind(4, request.language).bind(5, request.provider).bindBlob(6, request.audioHash);
    query.bind(7, number(TaskStatus::failed));
    if (request.wantsFreshResult())
        query.bind(8, request.purpose)
            .bind(9, number(TaskStatus::completed))
            .bind(10, now() - duration_cast<milliseconds>(retryWindow).count());
    return findOne(query);
}

std::optional<Task> TaskStore::crashed(const TaskRequest& request) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database,
                    select("audio_hash = ? AND provider = ? AND error_code = 'RECOGNITION_CRASHED' AND failed_by = ? "
                           "LIMIT 1"));
    query.bindBlob(1, request.audioHash).bind(2, request.provider).bind(3, m_version);
    return findOne(query);
}

bool TaskStore::knowsUser(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT 1 FROM tasks WHERE user_id = ?1 UNION ALL "
                                "SELECT 1 FROM live_transcripts WHERE user_id = ?1 LIMIT 1");
    query.bind(1, userId);
    return query.step();
}

void TaskStore::check() {
    const std::scoped_lock lock(m_mutex);
    const Transaction rolledBack(m_database);
}

std::optional<Task> TaskStore::add(const TaskRequest& request, const std::string& transcript) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    auto owner = ownerOf(request.userId);
    if (!owner)
        return std::nullopt;
    Task task;
    task.id = randomUuid();
    task.request = request;
    task.request.userId = std::move(*owner);
    task.request.hasTranscript = !transcript.empty();
    Statement insert(m_database,
                     "INSERT INTO tasks(id, user_id, kind, recording_id, language, purpose, provider, audio_hash, "
                     "audio_file, audio_bytes, status, created_at, updated_at, transcript) "
                     "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,nullif(?,''))");
    insert.bind(1, task.id).bind(2, task.request.userId).bind(3, static_cast<int64_t>(request.kind));
    insert.bind(4, request.recordingId).bind(5, request.language).bind(6, request.purpose).bind(7, request.provider);
    insert.bindBlob(8, request.audioHash).bind(9, request.audioFile).bind(10, request.audioBytes);
    insert.bind(11, number(TaskStatus::queued)).bind(12, now()).bind(13, now()).bind(14, transcript).step();
    transaction.commit();
    return task;
}

std::string TaskStore::transcript(const std::string& id) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT transcript FROM tasks WHERE id = ? AND transcript IS NOT NULL");
    query.bind(1, id);
    return query.step() ? query.text(0) : std::string();
}

std::optional<Task> TaskStore::find(const std::string& userId, const std::string& id) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, select("id = ? AND user_id = ?"));
    query.bind(1, id).bind(2, ownerOf(userId).value_or(""));
    return findOne(query);
}

std::optional<Task> TaskStore::findDiarization(const std::string& userId, const std::string& recordingId) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database,
                    select("user_id = ? AND recording_id = ? AND kind = ? ORDER BY created_at DESC LIMIT 1"));
    query.bind(1, ownerOf(userId).value_or(""))
        .bind(2, recordingId)
        .bind(3, static_cast<int64_t>(TaskKind::diarization));
    return findOne(query);
}

std::vector<Task> TaskStore::unfinished() {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, select("status IN (?, ?) ORDER BY created_at"));
    query.bind(1, number(TaskStatus::queued)).bind(2, number(TaskStatus::running));
    std::vector<Task> tasks;
    while (query.step())
        tasks.push_back(read(query));
    return tasks;
}

int TaskStore::unfinishedOf(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT count(*) FROM tasks WHERE user_id = ? AND status IN (?, ?)");
    query.bind(1, ownerOf(userId).value_or("")).bind(2, number(TaskStatus::queued));
    query.bind(3, number(TaskStatus::running)).step();
    return static_cast<int>(query.integer(0));
}

void TaskStore::begin(const std::string& id) {
    const std::scoped_lock lock(m_mutex);
    Statement update(m_database, "UPDATE tasks SET status = ?, attempts = attempts + 1, updated_at = ? WHERE id = ?");
    update.bind(1, number(TaskStatus::running)).bind(2, now()).bind(3, id).step();
}

void TaskStore::requeue(const std::string& id, bool uncount) {
    const std::scoped_lock lock(m_mutex);
    Statement update(m_database, "UPDATE tasks SET status = ?, attempts = max(0, attempts - ?) WHERE id = ?");
    update.bind(1, number(TaskStatus::queued)).bind(2, int64_t{uncount ? 1 : 0}).bind(3, id).step();
}

void TaskStore::complete(const std::string& id, const std::string& result) {
    const std::scoped_lock lock(m_mutex);
    Statement update(m_database,
                     "UPDATE tasks SET status = ?, result = ?, audio_file = NULL, transcript = NULL, updated_at = ? "
                     "WHERE id = ?");
    update.bind(1, number(TaskStatus::completed)).bind(2, result).bind(3, now()).bind(4, id).step();
}

void TaskStore::fail(const std::string& id, int status, const std::string& code, const std::string& error) {
    const std::scoped_lock lock(m_mutex);
    Statement update(m_database, "UPDATE tasks SET status = ?, error_status = ?, error_code = ?, error = ?, "
                                 "audio_file = NULL, transcript = NULL, failed_by = ?, updated_at = ? WHERE id = ?");
    update.bind(1, number(TaskStatus::failed)).bind(2, int64_t{status}).bind(3, code).bind(4, error);
    update.bind(5, m_version).bind(6, now()).bind(7, id).step();
}

void TaskStore::keepLive(const LiveTranscript& transcript) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    const auto owner = ownerOf(transcript.userId);
    if (!owner)
        return;
    Statement insert(m_database,
                     "INSERT OR REPLACE INTO live_transcripts(user_id, recording_id, id, text, language, languages, "
                     "provider, sample_count, sample_hash, created_at) VALUES(?,?,?,?,?,?,?,?,?,?)");
    insert.bind(1, *owner).bind(2, transcript.recordingId).bind(3, transcript.id).bind(4, transcript.text);
    insert.bind(5, transcript.language).bind(6, transcript.languages).bind(7, transcript.provider);
    insert.bind(8, transcript.sampleCount).bindBlob(9, transcript.sampleHash).bind(10, now()).step();
    transaction.commit();
}

std::optional<LiveTranscript> TaskStore::findLive(const std::string& userId, const std::string& recordingId) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT id, text, language, languages, provider, sample_count FROM live_transcripts "
                                "WHERE user_id = ? AND recording_id = ?");
    const std::string owner = ownerOf(userId).value_or("");
    query.bind(1, owner).bind(2, recordingId);
    if (!query.step())
        return std::nullopt;
    LiveTranscript transcript;
    transcript.userId = owner;
    transcript.recordingId = recordingId;
    transcript.id = query.text(0);
    transcript.text = query.text(1);
    transcript.language = query.text(2);
    transcript.languages = query.text(3);
    transcript.provider = query.text(4);
    transcript.sampleCount = query.integer(5);
    return transcript;
}

bool TaskStore::liveMatches(const LiveTranscript& transcript, const Sha256Value& sampleHash) {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT 1 FROM live_transcripts WHERE user_id = ? AND recording_id = ? AND id = ? AND "
                                "sample_hash = ?");
    query.bind(1, transcript.userId).bind(2, transcript.recordingId).bind(3, transcript.id).bindBlob(4, sampleHash);
    return query.step();
}

std::vector<std::string> TaskStore::audioFiles(Statement& query) {
    std::vector<std::string> files;
    while (query.step())
        files.push_back(query.text(0));
    return files;
}

std::vector<std::string> TaskStore::expire(std::chrono::seconds results, std::chrono::seconds audio) {
    const std::scoped_lock lock(m_mutex);
    const int64_t oldestResult = now() - duration_cast<milliseconds>(results).count();
    const int64_t oldestAudio = now() - duration_cast<milliseconds>(audio).count();
    Transaction transaction(m_database);
    // Running tasks are not touched, because they end soon.
    Statement query(m_database,
                    "SELECT audio_file FROM tasks WHERE status = ? AND created_at < ? AND audio_file IS NOT NULL");
    query.bind(1, number(TaskStatus::queued)).bind(2, oldestAudio);
    auto files = audioFiles(query);
    Statement giveUp(m_database,
                     "UPDATE tasks SET status = ?, error_status = 503, error_code = 'EXPIRED', error = "
                     "'The server had no time to recognise this audio; upload it again.', "
                     "audio_file = NULL, transcript = NULL, updated_at = ? WHERE status = ? AND created_at < ?");
    giveUp.bind(1, number(TaskStatus::failed)).bind(2, now());
    giveUp.bind(3, number(TaskStatus::queued)).bind(4, oldestAudio).step();
    Statement forget(m_database, "DELETE FROM tasks WHERE status IN (?, ?) AND updated_at < ?");
    forget.bind(1, number(TaskStatus::completed)).bind(2, number(TaskStatus::failed)).bind(3, oldestResult).step();
    Statement forgetLive(m_database, "DELETE FROM live_transcripts WHERE created_at < ?");
    forgetLive.bind(1, oldestResult).step();
    Statement forgetFormer(m_database, "DELETE FROM former_users WHERE ended_at < ?");
    forgetFormer.bind(1, now() - duration_cast<milliseconds>(formerUserLifetime).count()).step();
    transaction.commit();
    return files;
}

std::vector<std::string> TaskStore::removeUser(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    auto files = forgetUser(userId);
    transaction.commit();
    return files;
}

std::vector<std::string> TaskStore::forgetUser(const std::string& userId) {
    Statement query(m_database, "SELECT audio_file FROM tasks WHERE user_id = ? AND audio_file IS NOT NULL");
    query.bind(1, userId);
    auto files = audioFiles(query);
    for (const char* table : {"tasks", "live_transcripts"}) {
        Statement remove(m_database, std::string("DELETE FROM ") + table + " WHERE user_id = ?");
        remove.bind(1, userId).step();
    }
    Statement predecessors(m_database, "UPDATE former_users SET successor = NULL WHERE successor = ?");
    predecessors.bind(1, userId).step();
    Statement former(m_database, "INSERT OR REPLACE INTO former_users(id, successor, ended_at) VALUES(?, NULL, ?)");
    former.bind(1, userId).bind(2, now()).step();
    return files;
}

std::vector<std::string> TaskStore::moveUser(const std::string& from, const std::string& to) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    std::vector<std::string> files;
    if (!ownerOf(to)) {
        files = forgetUser(from);
    } else {
        for (const char* table : {"tasks", "live_transcripts"}) {
            Statement move(m_database, std::string("UPDATE OR IGNORE ") + table + " SET user_id = ? WHERE user_id = ?");
            move.bind(1, to).bind(2, from).step();
        }
        Statement rest(m_database, "DELETE FROM live_transcripts WHERE user_id = ?");
        rest.bind(1, from).step();
        Statement former(m_database, "INSERT OR REPLACE INTO former_users(id, successor, ended_at) VALUES(?, ?, ?)");
        former.bind(1, from).bind(2, to).bind(3, now()).step();
    }
    transaction.commit();
    return files;
}

std::optional<std::string> TaskStore::ownerOf(const std::string& userId) {
    Statement query(m_database, "SELECT successor FROM former_users WHERE id = ?");
    query.bind(1, userId);
    if (!query.step())
        return userId;
    if (query.isNull(0))
        return std::nullopt;
    return query.text(0);
}

} // namespace quillo::server
