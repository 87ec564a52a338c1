#include "Uploads/AudioReader.h"

#include <cmath>
#include <soxr.h>
#include <stdexcept>
#include <string>

namespace quillo::server {

/// Converts the rate of interleaved channels.
class AudioReader::Converter {
public:
    Converter(int inputRate, int channels) : m_channels(static_cast<size_t>(channels)) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
        soxr_error_t error = nullptr;
        m_soxr = soxr_create(inputRate, rate, static_cast<unsigned>(channels), &error, &io, &quality, nullptr);
        if (error)
            throw std::runtime_error(std::string("cannot convert the rate of the audio: ") + error);
        m_ratio = static_cast<double>(rate) / inputRate;
    }
    ~Converter() { soxr_delete(m_soxr); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    /// Empty input flushes the converter; `output` stays empty when nothing is left.
    void convert(std::span<const int16_t> input, std::vector<int16_t>& output) {
        const size_t frames = input.size() / m_channels;
        // Leave room for samples held back by an earlier call; samples that do not fit come with the next call.
        const auto room = static_cast<size_t>(std::ceil(static_cast<double>(frames) * m_ratio)) + rate;
        output.resize(room * m_channels);
        size_t done = 0;
        const auto error =
            soxr_process(m_soxr, input.empty() ? nullptr : input.data(), frames, nullptr, output.data(), room, &done);
        if (error)
            throw std::runtime_error(std::string("cannot convert the rate of the audio: ") + error);
        output.resize(done * m_channels);
    }

private:
    size_t m_channels;
    soxr_t m_soxr;
    double m_ratio;
};

AudioReader::AudioReader(const std::filesystem::path& file) : m_wav(file) {
    if (m_wav.rate() != rate)
        m_converter = std::make_unique<Converter>(m_wav.rate(), m_wav.channels());
    m_input.resize(static_cast<size_t>(m_wav.rate()) * static_cast<size_t>(m_wav.channels()));
}

AudioReader::~AudioReader() = default;

int64_t AudioReader::length() const {
    return static_cast<int64_t>(std::llround(static_cast<double>(m_wav.frames()) * rate / m_wav.rate()));
}

bool AudioReader::read(AudioBlock& block) {
    std::span<const int16_t> samples;
    while (samples.empty()) {
        const size_t count = m_wav.read(m_input);
        samples = std::span<const int16_t>(m_input).first(count);
        if (m_converter) {
            m_converter->convert(samples, m_output);
            samples = m_output;
        }
        if (count == 0 && samples.empty())
            return false;
    }
    if (!isStereo()) {
        block.mono.assign(samples.begin(), samples.end());
        return true;
    }
    const size_t frames = samples.size() / 2;
    block.mono.resize(frames);
    block.left.resize(frames);
    block.right.resize(frames);
    for (size_t i = 0; i < frames; ++i) {
        block.left[i] = samples[2 * i];
        block.right[i] = samples[2 * i + 1];
        block.mono[i] = static_cast<int16_t>((block.left[i] + block.right[i]) / 2);
    }
    return true;
}

} // namespace quillo::server
