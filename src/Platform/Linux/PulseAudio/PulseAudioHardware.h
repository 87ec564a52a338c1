#pragma once

#include "Platform/AudioHardware.h"

#include <memory>

namespace quillo {

/// The microphones of a PulseAudio server, or of PipeWire in its place.
///
/// One connection is held for the life of the object, with the devices kept up to date by the server's events, so that
/// opening a microphone costs one round trip. A lost server is looked for again by itself.
std::unique_ptr<AudioHardware> createPulseAudioHardware();

} // namespace quillo
