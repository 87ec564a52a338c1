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

/// Pseudo-random noise of moderate amplitude: of a few dozen samples in a row there is no second occurrence, so that a
/// recording of it can be placed to the sample. The same for the same seed on every machine.
Samples noise(uint64_t seed, size_t count);

/// Headerless little-endian PCM. Throws std::runtime_error; a last half sample is left out when reading.
Samples readSamples(const QString& file);
/// Reads `count` samples from `first` on, fewer at the file's end.
Samples readSamples(const QString& file, int64_t first, int64_t count);
void writeSamples(const QString& file, SampleView samples);

} // namespace quillo::test
