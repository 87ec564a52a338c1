#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Who may use the one connection to the server: the dictations in the order of their beginning.
namespace connectionTurn {

/// Returns when the connection is `run`'s; false when the run ended before.
Task<bool> acquire(RunHandle run);

/// Closes the connection if it is `run`'s, and lets the next dictation have it. The first call counts.
void release(const RunHandle& run);

} // namespace connectionTurn

} // namespace quillo
