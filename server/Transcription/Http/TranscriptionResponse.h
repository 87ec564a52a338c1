#pragma once

#include "Transcription/Recogniser.h"

#include <optional>
#include <string>

namespace quillo::server {

/// Reads the answer of a transcription service, shifting its times by `offset` seconds. The dialects differ (numbers as
/// strings, words at the top or inside segments, -1 for unknown): only "text" is required. Null when there is none.
std::optional<Transcript> readTranscription(const std::string& body, double offset);

/// The service's error text for a message, at most 200 bytes; empty when it has none.
std::string readServiceError(const std::string& body);

} // namespace quillo::server
