#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// The way of the microphone's chunks through a dictation: into the backlog until the session is open, then to the
/// server, always in the order of capture. One consumer handles the chunks and one flush runs at a time, both on the
/// main thread, so that buffering, flushing and direct sending never interleave.
namespace audioStreaming {

/// Reads `stream` until it ends; runs in the run's task runner.
void begin(const RunHandle& run, AsyncStream<AudioChunk> stream);

/// Restarts the capture once when no chunk arrives within 0.6 s, then gives the recording up.
Task<> watchFirstChunk(RunHandle run);

/// Sends the backlog until it is empty; a chunk that cannot be sent is reported and the flush goes on. Chunks captured
/// from then on are sent as they come.
Task<> flush(RunHandle run);

/// After the last chunk: returns when everything has gone out, or the connection takes no more.
Task<> finishSending(RunHandle run);

/// Stops the microphone and returns when every chunk captured before is on the disk and in the backlog.
Task<> stopAndDrain(RunHandle run);

/// The same for a microphone that has been stopped already, and may be recording for another dictation by now.
Task<> drain(RunHandle run);

} // namespace audioStreaming

} // namespace quillo
