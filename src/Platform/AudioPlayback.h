#pragma once

#include "Core/UserError.h"

#include <QString>

#include <stop_token>

namespace quillo {

/// Playback failed; the message names the file or the sound server's error.
class AudioPlaybackError final : public UserError {
public:
    using UserError::UserError;
};

/// Plays kept recordings through the desktop's default output.
class AudioPlayback {
public:
    virtual ~AudioPlayback() = default;
    /// Plays a file of headerless 16-bit little-endian PCM, mono, 16 kHz, and returns when it has been played, or soon
    /// after `stop` was requested. Blocks, so windows call it on another thread (`perform`). Any thread. Throws
    /// AudioPlaybackError.
    virtual void play(const QString& path, std::stop_token stop) = 0;
};

} // namespace quillo
