#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// The ends of a dictation that come from outside it. Each closes the microphone and finishes the run at once, without
/// a word to the person.
namespace runAbandonment {

/// Keeps what was said, waiting for its text. What the device still delivers joins it.
void keep(const RunHandle& run, const QString& reason);

/// The same; returns when everything is on the disk.
Task<> keepAndWait(RunHandle run, QString reason);

/// The person cancelled. While speaking, that takes back what was said; after the stop it only refuses the insertion.
void cancel(const RunHandle& run);

} // namespace runAbandonment

} // namespace quillo
