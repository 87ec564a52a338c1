#pragma once

#include <cstddef>

namespace quillo {

/// The waveform level of `count` samples in -1 to 1: their RMS in decibels, -60 dBFS to 0 dBFS mapped to 0 to 1,
/// clamped. 0 for no samples. Allocates nothing.
[[nodiscard]] float audioLevel(const float* samples, size_t count);

} // namespace quillo
