#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace quillo::server {

/// A WAV file with 16-bit PCM, mono or stereo, at 4 to 192 kHz, read block by block. A header whose length is wrong,
/// as of a file whose writer was cut off, counts for nothing: the samples that are there are read. Not thread-safe.
class WavFile {
public:
    /// Throws UploadError (422) when the file is not such a WAV file or holds no sample.
    explicit WavFile(const std::filesystem::path& file);
    ~WavFile();
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    [[nodiscard]] int channels() const { return channels_; }
    /// Samples per second of each channel.
    [[nodiscard]] int rate() const { return rate_; }
    /// Samples of each channel.
    [[nodiscard]] int64_t frames() const { return frames_; }

    /// Fills `samples` with whole frames, the channels interleaved; returns how many samples were read, 0 at the end.
    /// Throws std::runtime_error when the disk fails.
    size_t read(std::span<int16_t> samples);

private:
    void readHeader();
    [[nodiscard]] size_t readAt(int64_t offset, void* bytes, size_t size) const;

    int descriptor_;
    int64_t fileSize_ = 0;
    int channels_ = 0;
    int rate_ = 0;
    int64_t frames_ = 0;
    int64_t offset_ = 0;
    int64_t end_ = 0;
};

} // namespace quillo::server
