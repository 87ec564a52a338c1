#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// The last step of a dictation: delivers the text, stores the audio, and informs the user.
namespace conclusion {

/// Uses the server's texts so far as the dictation's text.
void chooseText(RecordingRun& run);

/// For the history: the dictation's text, and the server's data about it.
[[nodiscard]] ArchivedText archivedText(const RecordingRun& run);

/// Inserts the text, completes the archive, shows the result, and finishes the run.
Task<> conclude(RunHandle run);

} // namespace conclusion

} // namespace quillo
