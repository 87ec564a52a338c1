#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// The last step of a dictation: the text where it belongs, the audio where it belongs, and a word to the person.
namespace conclusion {

/// Takes over what the server has said so far as the dictation's text.
void chooseText(RecordingRun& run);

/// For the history: the dictation's text, and what the server said about it.
[[nodiscard]] ArchivedText archivedText(const RecordingRun& run);

/// Inserts the text, settles the archive, shows how it ended, and finishes the run.
Task<> conclude(RunHandle run);

} // namespace conclusion

} // namespace quillo
