#pragma once

#include "Platform/AudioHardware.h"
#include "Services/Microphone/CapturingAudioService.h"

namespace quillo {

/// The decimal value, in the form that readers of the log search for; see docs/compatibility.md. 0 is followed by
/// "(noErr)"; a value whose four big-endian bytes are printable ASCII is followed by those characters, as in
/// 560947818('!obj').
[[nodiscard]] QString osStatusDescription(AudioStatus status);

// The name and the log lines stay: see docs/compatibility.md.
/// The microphone through the audio-hardware interface: one input unit per capture, at the device's own rate. The unit
/// is opened, started and disposed on the executor of the service.
class AUHALAudioService final : public CapturingAudioService {
public:
    /// `hardware` must outlive the service.
    explicit AUHALAudioService(AudioHardware& hardware);
};

} // namespace quillo
