#pragma once

#include "Transcription/Recogniser.h"
#include "Uploads/AudioReader.h"

#include <chrono>
#include <functional>
#include <stop_token>

namespace quillo::server {

/// The recogniser gave up on a file; `isUnavailable` tells a recogniser that is out of order from audio it cannot read.
class RecognitionFailed : public std::runtime_error {
public:
    RecognitionFailed(const std::string& message, bool unavailable)
        : std::runtime_error(message), isUnavailable(unavailable) {}
    bool isUnavailable;
};

/// The recognition was asked to stop.
class RecognitionStopped : public std::runtime_error {
public:
    RecognitionStopped() : std::runtime_error("the recognition was stopped") {}
};

/// What was recognised of a file.
struct RecognisedFile {
    std::vector<Transcript> pieces; ///< in order of time
    std::string text;               ///< all pieces joined
    std::string language;           ///< empty when unknown
    int64_t sampleCount = 0;
};

struct FileRecognitionSettings {
    std::string language;   ///< empty or "auto" for any
    bool background = true; ///< gives way to live sessions
    /// A recogniser that neither takes audio nor answers for so long has failed.
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(5);
    std::function<void(double share)> onProgress;         ///< 0 to 1
    std::function<void(const AudioBlock& block)> onAudio; ///< every block, once
};

/// Recognises a file from its begin to its end on the calling thread. Holds a few seconds of audio at a time. Throws
/// RecogniserUnavailable, RecognitionFailed, RecognitionStopped.
RecognisedFile recogniseFile(Recogniser& recogniser, AudioReader& audio, const FileRecognitionSettings& settings,
                             const std::stop_token& stop);

} // namespace quillo::server
