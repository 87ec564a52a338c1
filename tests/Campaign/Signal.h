#pragma once

#include <QString>

#include <cstdint>
#include <span>
#include <vector>

namespace quillo::test {

/// Mono 16-bit PCM at 16 kHz.
using Samples = std::vector<int16_t>;
using SampleView = std::span<const int16_t>;

constexpr int64_t samplesPerSecond = 16'000;

/// Pseudo-random noise of moderate amplitude. A run of a few dozen samples never repeats, so that a recording can be
/// located to the sample. The same seed gives the same signal on every machine.
Samples noise(uint64_t seed, size_t count);

/// Headerless little-endian PCM. Throws std::runtime_error; reading ignores an incomplete last sample.
Samples readSamples(const QString& file);
/// Reads `count` samples starting at `first`, fewer at the end of the file.
Samples readSamples(const QString& file, int64_t first, int64_t count);
void writeSamples(const QString& file, SampleView samples);

} // namespace quillo::test
