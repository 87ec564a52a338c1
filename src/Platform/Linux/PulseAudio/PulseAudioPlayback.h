#pragma once

#include "Platform/AudioPlayback.h"

#include <memory>

namespace quillo {

/// Plays on the default sink of the sound server, which is looked for at each playback.
std::unique_ptr<AudioPlayback> createPulseAudioPlayback();

} // namespace quillo
