#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Applies the server's events to a dictation.
namespace sessionMessages {

/// Reads `stream` until it ends; runs until then in the background.
void begin(const RunHandle& run, AsyncStream<ServerMessage> stream);

} // namespace sessionMessages

} // namespace quillo
