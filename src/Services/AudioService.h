#pragma once

#include "Services/CapturingAudioService.h"

namespace quillo {

/// The microphone through an audio engine, Qt Multimedia's: a second backend with the contract of the first, for sound
/// systems that the audio-hardware interface does not know. The engine lives on the executor of the service.
class AudioService final : public CapturingAudioService {
public:
    AudioService();
};

} // namespace quillo
