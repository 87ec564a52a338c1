-- What version 1 of the schema was, as written by the program of that time.
PRAGMA foreign_keys = OFF;
BEGIN TRANSACTION;
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
INSERT INTO "tasks" VALUES('06ec41fc-4586-49f8-a323-bb315ea77ec4','6c336efe-3374-4f58-b149-bacf740006e6',1,'old-recording','en','pending','scripted',X'39C969C51F6015E832D8A65E62E5C54A8733054CFC9348C03B99690C51DAA97F',NULL,32044,2,1,'{"plain_text":"the quick brown","processed_text":"the quick brown","segments":[{"speaker_label":"Speaker 1","start":0.0,"end":1.0,"start_formatted":"00:00","end_formatted":"00:01","text":"the quick brown"}],"summary":"","action_items":"","speaker_count":1,"stt_provider":"scripted","total_words":3,"duration_ms":1000}',NULL,NULL,NULL,1795415737975,1795415737978);
CREATE INDEX tasks_by_recording ON tasks(user_id, recording_id);
CREATE INDEX tasks_by_status ON tasks(status);
CREATE INDEX tasks_by_age ON tasks(updated_at);
CREATE INDEX live_transcripts_by_age ON live_transcripts(created_at);
COMMIT;
PRAGMA user_version = 1;
