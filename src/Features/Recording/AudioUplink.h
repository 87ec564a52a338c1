#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Sends the captured audio to the server, from the backlog in the order of capture, while a session is open. Only one
/// sender runs at a time, so that waiting and new chunks stay in order.
namespace audioUplink {

/// Sends the backlog until it is empty, if a session is open.
void send(const RunHandle& run);

/// Call after the last chunk: returns when everything is sent; false when the connection fails or `until` passes first.
Task<bool> finishSending(RunHandle run, Clock::Instant until);

} // namespace audioUplink

} // namespace quillo
