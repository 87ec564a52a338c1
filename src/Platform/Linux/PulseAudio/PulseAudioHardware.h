#pragma once

#include "Platform/AudioHardware.h"

#include <memory>

namespace quillo {

/// The microphones of a PulseAudio server, or of PipeWire's replacement for it.
///
/// The object keeps one connection, and the server's events keep the device list up to date, so that opening a
/// microphone costs one round trip. After losing the server it reconnects automatically.
std::unique_ptr<AudioHardware> createPulseAudioHardware();

} // namespace quillo
