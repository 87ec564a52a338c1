#include "Tasks/TaskSchema.h"

#include <array>

namespace quillo::server {
namespace {

/// Times are milliseconds since 1970; hashes are SHA-256. The numbers of kinds and states are those of Task.h.
constexpr std::string_view version1 = R"(
CREATE TABLE tasks (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL,
    kind INTEGER NOT NULL,
    recording_id TEXT NOT NULL,
    language TEXT NOT NULL,
    purpose TEXT NOT NULL,
    provider TEXT NOT NULL,
    audio_hash BLOB NOT NULL,
    audio_file TEXT,
    audio_bytes INTEGER NOT NULL,
    status INTEGER NOT NULL,
    attempts INTEGER NOT NULL DEFAULT 0,
    result TEXT,
    error_status INTEGER,
    error_code TEXT,
    error TEXT,
    created_at INTEGER NOT NULL,
    updated_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX tasks_by_recording ON tasks(user_id, recording_id);
CREATE INDEX tasks_by_status ON tasks(status);
CREATE INDEX tasks_by_age ON tasks(updated_at);
CREATE TABLE live_transcripts (
    user_id TEXT NOT NULL,
    recording_id TEXT NOT NULL,
    id TEXT NOT NULL,
    text TEXT NOT NULL,
    language TEXT NOT NULL,
    languages TEXT NOT NULL,
    provider TEXT NOT NULL,
    sample_count INTEGER NOT NULL,
    sample_hash BLOB NOT NULL,
    created_at INTEGER NOT NULL,
    PRIMARY KEY(user_id, recording_id)
) WITHOUT ROWID;
CREATE INDEX live_transcripts_by_age ON live_transcripts(created_at);
)";

/// Users who were removed or merged into a successor. Work begun for them may end later.
constexpr std::string_view version2 = R"(
CREATE TABLE former_users (
    id TEXT PRIMARY KEY,
    successor TEXT,
    ended_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX former_users_by_age ON former_users(ended_at);
CREATE INDEX former_users_by_successor ON former_users(successor);
)";

/// Audio that crashed the server is recognised by its hash.
constexpr std::string_view version3 = R"(
CREATE INDEX tasks_crashed ON tasks(audio_hash) WHERE error_code = 'RECOGNITION_CRASHED';
)";

/// The version of the server that gave the task up: another one may be able to recognise the audio.
constexpr std::string_view version4 = R"(
ALTER TABLE tasks ADD COLUMN failed_by TEXT;
)";

/// The words of a meeting that were recognised live, until its speakers are known.
constexpr std::string_view version5 = R"(
ALTER TABLE tasks ADD COLUMN transcript TEXT;
)";

constexpr std::array migrations = {version1, version2, version3, version4, version5};

} // namespace

std::span<const std::string_view> taskMigrations() { return migrations; }

} // namespace quillo::server
