#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Asking the server for a session.
namespace sessionRequests {

/// Sends `start_session` as the run's plan says; throws WebSocketError.
Task<> request(RunHandle run);

/// The present session is gone while the person speaks: keeps its text and asks for another one. Audio waits until that
/// has started. Gives the server up when sessions keep ending before they got any audio.
void replace(const RunHandle& run);

} // namespace sessionRequests

} // namespace quillo
