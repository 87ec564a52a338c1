#pragma once

#include <QString>

namespace quillo {

/// Plays a kept recording (headerless 16-bit little-endian PCM, mono, 16 kHz) through the default output, and returns
/// when it was heard. Throws std::runtime_error with a sentence for the user.
void playRecording(const QString& path);

} // namespace quillo
