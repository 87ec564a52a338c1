#pragma once

#include "Platform/Linux/PulseAudio/PulseAudioConnection.h"

#include <memory>

namespace quillo {

std::unique_ptr<AudioInputUnit> makePulseAudioInputUnit(std::shared_ptr<PulseAudioConnection> connection);

} // namespace quillo
