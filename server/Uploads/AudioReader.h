#pragma once

#include "Uploads/WavFile.h"

#include <memory>
#include <vector>

namespace quillo::server {

/// A block of audio at 16 kHz.
struct AudioBlock {
    std::vector<int16_t> mono; ///< both channels mixed
    /// The channels of a stereo file; empty for a mono one.
    std::vector<int16_t> left;
    std::vector<int16_t> right;
};

/// Reads a WAV file of any rate as 16 kHz, a second at a time. Not thread-safe.
class AudioReader {
public:
    static constexpr int rate = 16000;

    /// Throws as WavFile does.
    explicit AudioReader(const std::filesystem::path& file);
    ~AudioReader();
    AudioReader(const AudioReader&) = delete;
    AudioReader& operator=(const AudioReader&) = delete;

    /// The total number of samples at 16 kHz, accurate to one or two when the rate is converted.
    [[nodiscard]] int64_t length() const;
    [[nodiscard]] bool isStereo() const { return m_wav.channels() == 2; }
    /// True when the samples are passed on unchanged: 16 kHz mono.
    [[nodiscard]] bool isVerbatim() const { return m_wav.channels() == 1 && m_wav.rate() == rate; }

    /// The next block; false at the end. Throws std::runtime_error.
    bool read(AudioBlock& block);

private:
    class Converter;
    WavFile m_wav;
    std::unique_ptr<Converter> m_converter;
    std::vector<int16_t> m_input;
    std::vector<int16_t> m_output;
};

} // namespace quillo::server
