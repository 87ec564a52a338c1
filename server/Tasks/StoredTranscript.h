#pragma once

#include "Tasks/FileRecognition.h"

#include <optional>
#include <string>

namespace quillo::server {

/// What was recognised of a meeting while it was streamed, kept with its audio until its speakers are separated.
struct StoredTranscript {
    RecognisedFile heard;
    double audioStart = 0; ///< where the kept audio begins, in seconds from the start of the session's audio
};

/// As JSON, for the database.
std::string encode(const StoredTranscript& transcript);
/// Empty when the text is not such JSON.
std::optional<StoredTranscript> decodeTranscript(const std::string& text);

} // namespace quillo::server
