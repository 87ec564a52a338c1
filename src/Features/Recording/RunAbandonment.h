#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Ends a dictation from outside. Each function closes the microphone and finishes the run at once, without notifying
/// the user.
namespace runAbandonment {

/// Keeps the audio, including what the device still delivers, in the queue.
void keep(const RunHandle& run, const QString& reason);

/// The same; returns when everything is on the disk.
Task<> keepAndWait(RunHandle run, QString reason);

/// The user cancelled. During the recording this discards the audio; after the stop it only prevents the insertion.
void cancel(const RunHandle& run);

} // namespace runAbandonment

} // namespace quillo
