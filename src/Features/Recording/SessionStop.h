#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// From the end of the speech to the delivered text. The steps stand on their own: a recording may return to `idle`
/// after the first of them and do the others behind the next dictation.
namespace sessionStop {

/// Ends the dictation with all its steps: it always leaves the machine in `idle` or in the error that ended it. The
/// first request counts. `failure` says why the microphone was lost.
void request(const RunHandle& run, StopCause cause, const QString& failure = {});

/// Ends a demonstration: a fixed text, which is not inserted.
void endDemo(const RunHandle& run);

/// Closes the microphone and returns when everything said is on the disk.
Task<> endAudio(RunHandle run);

/// Sends the rest, ends the server's session and returns with its last word, or when it is not worth waiting for.
Task<> endSession(RunHandle run);

} // namespace sessionStop

} // namespace quillo
