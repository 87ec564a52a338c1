#pragma once

#include "Foundation/Digest.h"

#include <cstdint>
#include <string>

namespace quillo::server {

enum class TaskKind { transcription, diarization };
/// The next start of the server resumes "queued" and "running" tasks.
enum class TaskStatus { queued, running, completed, failed };

/// The work that a client requests for an uploaded file.
struct TaskRequest {
    std::string userId;
    TaskKind kind = TaskKind::transcription;
    std::string recordingId; ///< the client's id of the recording; may be empty
    std::string language;    ///< ISO 639-1; empty or "auto" for any
    std::string purpose;     ///< the client's purpose
    std::string provider;    ///< the recogniser to use
    Sha256Value audioHash{}; ///< of the whole file
    std::string audioFile;   ///< name in the spool
    int64_t audioBytes = 0;
    /// Of a meeting: its words were recognised live and are in the store; only its speakers are missing.
    bool hasTranscript = false;

    /// The purposes that request a new recognition instead of an earlier result.
    [[nodiscard]] bool wantsFreshResult() const { return purpose.starts_with("retranscri"); }
};

struct Task {
    std::string id;
    TaskRequest request; ///< without `audioHash`
    TaskStatus status = TaskStatus::queued;
    int attempts = 0;      ///< how often it was started
    std::string result;    ///< JSON, once completed
    std::string errorCode; ///< once failed
    std::string error;     ///< for users: cause and next step
    int errorStatus = 0;   ///< HTTP status of the failure

    [[nodiscard]] bool isOver() const { return status == TaskStatus::completed || status == TaskStatus::failed; }
};

/// The result of a live session, kept so that the same audio need not be recognised again.
struct LiveTranscript {
    std::string userId;
    std::string recordingId;
    std::string id; ///< the session's "transcription_id"
    std::string text;
    std::string language;  ///< as recognised; empty when unknown
    std::string languages; ///< as asked for, separated by commas
    std::string provider;
    int64_t sampleCount = 0; ///< 16 kHz mono
    Sha256Value sampleHash{};
};

} // namespace quillo::server
