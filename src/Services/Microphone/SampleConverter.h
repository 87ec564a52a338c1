#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

struct soxr;

namespace quillo {

/// Converts 32-bit float mono at a device's rate to 16-bit mono at 16 kHz, as a stream. Full scale saturates. One
/// thread at a time; allocates at construction only.
class SampleConverter {
public:
    /// Throws std::runtime_error when no converter can be made for `inputRate`, in Hz. `largestInput` is the largest
    /// number of frames passed to one call of `convert`.
    SampleConverter(double inputRate, size_t largestInput);
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    /// Converts the next samples; the result is valid until the next call. Throws std::runtime_error with the library's
    /// reason.
    std::span<const int16_t> convert(const float* samples, size_t count);
    /// Returns the samples still held in the filter, so that the output is as long as the input. Ends the stream.
    std::span<const int16_t> flush();

private:
    std::span<const int16_t> run(const float* samples, size_t count);

    soxr* m_soxr;
    size_t m_capacity;
    std::unique_ptr<int16_t[]> m_output;
};

} // namespace quillo
