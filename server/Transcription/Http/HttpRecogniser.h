#pragma once

#include "Transcription/Http/HttpRecogniserSettings.h"
#include "Transcription/Recogniser.h"

namespace quillo::server {

/// A recogniser that sends each utterance to a transcription service. Throws RecogniserUnavailable when the settings
/// cannot work. `open` throws it when `maxSessions` are running; other problems show in the first request and are
/// reported through `onFailed`. Destroying the recogniser abandons its sessions; do not destroy it from a listener.
std::unique_ptr<Recogniser> makeHttpRecogniser(const HttpRecogniserSettings& settings);

} // namespace quillo::server
