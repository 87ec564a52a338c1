#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// From the end of the speech to the delivered text. The steps can be called one by one: a recording may return to
/// `idle` after the first one and perform the others in the background of the next dictation.
namespace sessionStop {

/// Runs all steps; always ends in `idle` or in an error state. Only the first request counts. `failure` says why the
/// microphone was lost.
void request(const RunHandle& run, StopCause cause, const QString& failure = {});

/// Ends a demonstration with a fixed text, which is not inserted.
void endDemo(const RunHandle& run);

/// Closes the microphone and returns when all audio is on the disk.
Task<> endAudio(RunHandle run);

/// Sends the remaining audio, ends the server's session, and returns when its result has arrived or waiting is
/// pointless.
Task<> endSession(RunHandle run);

} // namespace sessionStop

} // namespace quillo
