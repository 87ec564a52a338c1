#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// From the released key to the delivered text.
namespace sessionStop {

/// Ends the run: drains the microphone, waits for the server's last word within bounds, delivers the text. Always
/// leaves the machine in `idle` or in the error that ended it.
Task<> stop(RunHandle run);

} // namespace sessionStop

} // namespace quillo
