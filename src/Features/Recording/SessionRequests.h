#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Requests sessions from the server.
namespace sessionRequests {

/// Sends `start_session` as the run's plan says; throws WebSocketError.
Task<> request(RunHandle run);

/// The session ended during the recording: keeps its text and requests another one, until which audio waits. Gives up
/// the server when sessions keep ending before they receive any audio.
void replace(const RunHandle& run);

} // namespace sessionRequests

} // namespace quillo
