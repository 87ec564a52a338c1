#include "Services/Microphone/SampleConverter.h"

#include "Core/AudioChunk.h"

#include <cmath>
#include <soxr.h>
#include <stdexcept>

namespace quillo {

namespace {

/// Room for output frames that the filter held back from earlier input.
constexpr size_t filterReserve = 8192;
constexpr unsigned smallestTransform = 8; // as a power of two, the least that soxr takes

void check(soxr_error_t error) {
    if (error)
        throw std::runtime_error(error);
}

/// Throws before anything is allocated: without a rate the output of one input has no bound.
size_t outputCapacity(double inputRate, size_t largestInput) {
    if (!(inputRate > 0))
        throw std::runtime_error("the device has no sample rate");
    const auto most = static_cast<double>(largestInput) * AudioFormat::sampleRate / std::max(inputRate, 1.0);
    return static_cast<size_t>(std::ceil(most)) + filterReserve;
}

} // namespace

SampleConverter::SampleConverter(double inputRate, size_t largestInput)
    : m_soxr(nullptr), m_capacity(outputCapacity(inputRate, largestInput)),
      m_output(std::make_unique<int16_t[]>(m_capacity)) {
    auto formats = soxr_io_spec(SOXR_FLOAT32_I, SOXR_INT16_I);
    // Recognisers hear dither as noise, and the same input should always give the same output.
    formats.flags |= SOXR_NO_DITHER;
    // High quality passes speech unattenuated up to 7.3 kHz. Its filter works in blocks: the smallest hold back 6 to 15
    // ms at 48 kHz, the default ones up to 37 ms. They cost a third more, of little.
    const auto quality = soxr_quality_spec(SOXR_HQ, 0);
    auto runtime = soxr_runtime_spec(1);
    runtime.log2_min_dft_size = smallestTransform;
    runtime.log2_large_dft_size = smallestTransform;
    soxr_error_t error = nullptr;
    m_soxr = soxr_create(inputRate, AudioFormat::sampleRate, 1, &error, &formats, &quality, &runtime);
    check(error);
}

SampleConverter::~SampleConverter() { soxr_delete(m_soxr); }

std::span<const int16_t> SampleConverter::convert(const float* samples, size_t count) { return run(samples, count); }

std::span<const int16_t> SampleConverter::flush() { return run(nullptr, 0); }

std::span<const int16_t> SampleConverter::run(const float* samples, size_t count) {
    size_t used = 0;
    size_t made = 0;
    check(soxr_process(m_soxr, samples, count, &used, m_output.get(), m_capacity, &made));
    return {m_output.get(), made};
}

} // namespace quillo
