#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace quillo::server {

/// A WAV file with 16-bit PCM, mono or stereo, at 4 to 192 kHz, read block by block. A wrong length in the header, as
/// after an interrupted recording, is ignored: all existing samples are read. Not thread-safe.
class WavFile {
public:
    /// Throws UploadError (422) when the file is not such a WAV file or contains no sample.
    explicit WavFile(const std::filesystem::path& file);
    ~WavFile();
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    [[nodiscard]] int channels() const { return m_channels; }
    /// Samples per second of each channel.
    [[nodiscard]] int rate() const { return m_rate; }
    /// Samples of each channel.
    [[nodiscard]] int64_t frames() const { return m_frames; }

    /// Fills `samples` with whole frames, the channels interleaved; returns how many samples were read, 0 at the end.
    /// Throws std::runtime_error when the disk fails.
    size_t read(std::span<int16_t> samples);

private:
    void readHeader();
    [[nodiscard]] size_t readAt(int64_t offset, void* bytes, size_t size) const;

    int m_descriptor;
    int64_t m_fileSize = 0;
    int m_channels = 0;
    int m_rate = 0;
    int64_t m_frames = 0;
    int64_t m_offset = 0;
    int64_t m_end = 0;
};

} // namespace quillo::server
