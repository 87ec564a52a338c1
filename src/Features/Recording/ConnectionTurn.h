#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Assigns the only connection to the server to the dictations in the order of their start.
namespace connectionTurn {

/// Returns when it is `run`'s turn; false when the run ended before.
Task<bool> acquire(RunHandle run);

/// Closes the connection if `run` has it, and passes it to the next dictation. Only the first call counts.
void release(const RunHandle& run);

} // namespace connectionTurn

} // namespace quillo
