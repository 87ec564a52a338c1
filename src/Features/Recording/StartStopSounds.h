#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

enum class SoundCue { start, stop, cancel };

/// Plays the cue unless the user has switched sounds off.
void playSound(const RecordingRun& run, SoundCue cue);

} // namespace quillo
