#include "Uploads/WavFile.h"

#include "Uploads/UploadError.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillo::server {
namespace {

// RIFF, "Multiple Channel Audio Data and WAVE Files" (Microsoft, 2007).
constexpr uint16_t formatPcm = 1;
constexpr uint16_t formatExtensible = 0xfffe;
constexpr int lowestRate = 4000;
constexpr int highestRate = 192000;

static_assert(std::endian::native == std::endian::little, "the fields of a WAV file are little-endian");

template <class Value>
Value field(const uint8_t* bytes) {
    Value value{};
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

[[noreturn]] void unsupported(const std::string& cause) {
    throw UploadError(422, "UNSUPPORTED_AUDIO",
                      "The part \"file\" " + cause + ". Send a WAV file with 16-bit PCM, mono or stereo.");
}

} // namespace

WavFile::WavFile(const std::filesystem::path& file) : descriptor_(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        throw std::runtime_error("cannot open " + file.string() + ": " + std::strerror(errno));
    try {
        readHeader();
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

WavFile::~WavFile() { ::close(descriptor_); }

size_t WavFile::readAt(int64_t offset, void* bytes, size_t size) const {
    size_t total = 0;
    while (total < size) {
        const auto count =
            ::pread(descriptor_, static_cast<char*>(bytes) + total, size - total, offset + static_cast<int64_t>(total));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw std::runtime_error(std::string("cannot read the audio: ") + std::strerror(errno));
        if (count == 0)
            break;
        total += static_cast<size_t>(count);
    }
    return total;
}

void WavFile::readHeader() {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0)
        throw std::runtime_error(std::string("cannot look at the audio: ") + std::strerror(errno));
    fileSize_ = status.st_size;
    std::array<uint8_t, 12> riff{};
    if (readAt(0, riff.data(), riff.size()) < riff.size() || std::memcmp(riff.data(), "RIFF", 4) != 0 ||
        std::memcmp(riff.data() + 8, "WAVE", 4) != 0)
        unsupported("is not a WAV file");

    int64_t position = riff.size();
    for (;;) {
        std::array<uint8_t, 8> chunk{};
        if (readAt(position, chunk.data(), chunk.size()) < chunk.size())
            unsupported(channels_ == 0 ? "has no format chunk" : "has no audio data");
        const auto size = field<uint32_t>(chunk.data() + 4);
        position += static_cast<int64_t>(chunk.size());
        if (std::memcmp(chunk.data(), "data", 4) == 0) {
            if (channels_ == 0)
                unsupported("has its audio before the format chunk");
            // 0 and the largest number stand for "not known" in files that were written as a stream.
            const int64_t rest = fileSize_ - position;
            const bool known = size != 0 && size <= rest;
            offset_ = position;
            const int64_t frameBytes = int64_t{2} * channels_;
            frames_ = (known ? static_cast<int64_t>(size) : rest) / frameBytes;
            end_ = offset_ + frames_ * frameBytes;
            if (frames_ == 0)
                throw UploadError(422, "NO_AUDIO", "The audio holds no samples; there is nothing to recognise.");
            return;
        }
        if (std::memcmp(chunk.data(), "fmt ", 4) == 0) {
            std::array<uint8_t, 40> format{};
            const size_t count = readAt(position, format.data(), std::min<size_t>(size, format.size()));
            if (count < 16)
                unsupported("has a format chunk that is too short");
            auto tag = field<uint16_t>(format.data());
            if (tag == formatExtensible && count >= 26)
                tag = field<uint16_t>(format.data() + 24);
            const auto channels = field<uint16_t>(format.data() + 2);
            const auto rate = field<uint32_t>(format.data() + 4);
            const auto bits = field<uint16_t>(format.data() + 14);
            if (tag != formatPcm || bits != 16)
                unsupported("is not 16-bit PCM (format " + std::to_string(tag) + ", " + std::to_string(bits) +
                            " bits)");
            if (channels < 1 || channels > 2)
                unsupported("has " + std::to_string(channels) + " channels");
            if (rate < lowestRate || rate > highestRate)
                unsupported("has " + std::to_string(rate) + " samples a second");
            channels_ = channels;
            rate_ = static_cast<int>(rate);
        }
        position += static_cast<int64_t>(size) + (size & 1U); // chunks are padded to even length
    }
}

size_t WavFile::read(std::span<int16_t> samples) {
    const auto frameBytes = size_t{2} * static_cast<size_t>(channels_);
    const auto wanted = std::min(samples.size_bytes() / frameBytes * frameBytes, static_cast<size_t>(end_ - offset_));
    const size_t count = readAt(offset_, samples.data(), wanted);
    if (count < wanted)
        throw std::runtime_error("the audio file has become shorter");
    offset_ += static_cast<int64_t>(count);
    return count / 2;
}

} // namespace quillo::server
