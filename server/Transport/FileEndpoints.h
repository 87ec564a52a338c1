#pragma once

#include "Accounts/AccountStore.h"
#include "Tasks/TaskService.h"
#include "Transport/Limits.h"
#include "Transport/Router.h"

#include <memory>

namespace quillo::server {

struct FileServices {
    uint64_t maxUploadBytes = 0;
    std::shared_ptr<AccountStore> accounts;
    std::shared_ptr<TaskService> tasks;
    std::shared_ptr<Limits> uploads; ///< by user
};

/// Adds the paths that take recordings, all with a bearer token, below /api/v1 and at the root:
///
/// - POST /transcription/file and POST /transcription/diarize: multipart/form-data with "file", "language", "purpose",
///   "client_recording_id"; all but the first may be absent. Answered with the result, or after `answerTimeout` with
///   202 and {"status": "processing", "task_id"}: the work continues, and the same request finds it.
/// - GET /transcription/diarization/{task} and GET /transcription/recording/{client_recording_id}/diarization:
///   {"status": "processing" | "completed" | "failed", "task_id"} with the result, or the failure's "message".
void addFileEndpoints(Router& router, const FileServices& services);

} // namespace quillo::server
