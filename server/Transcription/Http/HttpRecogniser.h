#pragma once

#include "Transcription/Http/HttpRecogniserSettings.h"
#include "Transcription/Recogniser.h"

namespace quillo::server {

/// A recogniser that sends each utterance to a transcription service. Throws RecogniserUnavailable when the settings
/// cannot work. `open` throws it when `maxSessions` are under way; everything else is found out by the first request
/// and told through `onFailed`. Destroying the recogniser abandons its sessions; not to be done from a listener.
std::unique_ptr<Recogniser> makeHttpRecogniser(const HttpRecogniserSettings& settings);

} // namespace quillo::server
