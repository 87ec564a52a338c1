#pragma once

#include "Transcription/Recogniser.h"
#include "Uploads/AudioReader.h"

#include <chrono>
#include <functional>
#include <stop_token>

namespace quillo::server {

/// The recogniser failed on a file; `isUnavailable` distinguishes a broken recogniser from audio it cannot read.
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

/// The result of recognising a file.
struct RecognisedFile {
    std::vector<Transcript> pieces; ///< in order of time
    std::string text;               ///< all pieces joined
    std::string language;           ///< empty when unknown
    int64_t sampleCount = 0;
};

struct FileRecognitionSettings {
    std::string language;   ///< empty or "auto" for any
    bool background = true; ///< live sessions have priority
    /// Of a stereo file, the channel to recognise: the microphone is on the left. Unknown: both mixed.
    AudioSource source = AudioSource::unknown;
    /// A recogniser that neither takes audio nor answers for this long has failed.
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(5);
    std::function<void(double share)> onProgress;         ///< 0 to 1
    std::function<void(const AudioBlock& block)> onAudio; ///< every block, once
};

/// Recognises a whole file on the calling thread. Keeps a few seconds of audio in memory. Throws RecogniserUnavailable,
/// RecognitionFailed, RecognitionStopped.
RecognisedFile recogniseFile(Recogniser& recogniser, AudioReader& audio, const FileRecognitionSettings& settings,
                             const std::stop_token& stop);

} // namespace quillo::server
