#pragma once

#include "Platform/AudioHardware.h"

#include <stdexcept>

namespace quillo {

/// Why system audio is not captured. `what()` is for the log; the meeting goes on with the microphone alone.
class SystemAudioError : public std::runtime_error {
public:
    enum class Code {
        tapCreationFailed,    ///< the monitor of the output could not be opened
        ioStartFailed,        ///< it was opened but delivers nothing
        notAvailable,         ///< there is no sound server
        alreadyCapturing,     ///< `startCapture` without a `stopCapture` before it
        outputDeviceNotFound, ///< the sound server has no default output
        headphonesRequired,   ///< the microphone would record the loudspeakers
    };

    /// `status`: what the sound server said, for the first two codes.
    explicit SystemAudioError(Code code, AudioStatus status = 0);
    [[nodiscard]] Code code() const { return m_code; }

private:
    Code m_code;
};

} // namespace quillo
