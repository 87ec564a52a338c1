#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// From the pressed key to an open session that receives the microphone's audio.
namespace sessionStart {

/// Opens the microphone first, and the session while it records. A microphone that cannot be used ends the run with the
/// matching action; without a server the recording goes on to disk.
Task<> start(RunHandle run);

/// The demonstration without any service: a fixed partial text until the stop.
Task<> startDemo(RunHandle run);

} // namespace sessionStart

} // namespace quillo
