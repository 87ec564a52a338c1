#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// The way of the captured audio to the server: out of the backlog, in the order of capture, while a session is open.
/// One sending runs at a time, so that what waited and what comes now never interleave.
namespace audioUplink {

/// Sends what waits if a session is open, until nothing waits any more.
void send(const RunHandle& run);

/// After the last chunk: returns when everything has gone out; false when the connection takes no more, or `until` has
/// come first.
Task<bool> finishSending(RunHandle run, Clock::Instant until);

} // namespace audioUplink

} // namespace quillo
