#pragma once

#include "Foundation/Json.h"
#include "Tasks/FileRecognition.h"
#include "Tasks/StoredTranscript.h"

namespace quillo::server {

/// How a task is carried out.
struct TaskWork {
    Recogniser& recogniser;
    std::chrono::milliseconds stallTimeout;
    std::function<void(double share)> onProgress; ///< 0 to 1
    std::stop_token stop;
};

// All run on the calling thread, return the task's result, and throw as `recogniseFile` and `AudioReader` do.

/// The text of a file.
Json transcribeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& taskId,
                      const std::string& language);
/// Its text by speakers; in a stereo file, with the microphone on the left and the system's audio on the right, each
/// channel has its own words and speakers.
Json diarizeUpload(const TaskWork& work, const std::filesystem::path& audio, const std::string& language);
/// The text of a meeting by speakers, without recognising its words again.
Json separateMeeting(const TaskWork& work, const std::filesystem::path& audio, const StoredTranscript& transcript);

} // namespace quillo::server
