#pragma once

#include "Core/UserError.h"

#include <QString>

#include <stop_token>

namespace quillo {

/// Why a recording was not heard; the message names the file or what the sound server said.
class AudioPlaybackError final : public UserError {
public:
    using UserError::UserError;
};

/// Plays kept recordings through the desktop's default output.
class AudioPlayback {
public:
    virtual ~AudioPlayback() = default;
    /// Plays a file of headerless 16-bit little-endian PCM, mono, 16 kHz, and returns when it was heard, or soon after
    /// `stop` was requested. Blocks: a window calls it on a thread of its own (`perform`). Any thread. Throws
    /// AudioPlaybackError.
    virtual void play(const QString& path, std::stop_token stop) = 0;
};

} // namespace quillo
