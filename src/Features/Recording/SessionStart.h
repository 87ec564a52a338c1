#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// From the key press to an open session that receives the microphone's audio.
namespace sessionStart {

/// Opens the microphone first, and the session during the recording. An unusable microphone ends the run with the
/// matching action; without a server the recording continues on disk.
Task<> start(RunHandle run);

/// The demonstration without any service: a fixed partial text until the stop.
Task<> startDemo(RunHandle run);

} // namespace sessionStart

} // namespace quillo
