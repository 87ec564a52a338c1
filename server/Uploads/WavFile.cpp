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

WavFile::WavFile(const std::filesystem::path& file) : m_descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (m_descriptor < 0)
        throw std::runtime_error("cannot open " + file.string() + ": " + std::strerror(errno));
    try {
        readHeader();
    } catch (...) {
        ::close(m_descriptor);
        throw;
    }
}

WavFile::~WavFile() { ::close(m_descriptor); }

size_t WavFile::readAt(int64_t offset, void* bytes, size_t size) const {
    size_t total = 0;
    while (total < size) {
        const auto count = ::pread(m_descriptor, static_cast<char*>(bytes) + total, size - total,
                                   offset + static_cast<int64_t>(total));
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
    if (::fstat(m_descriptor, &status) != 0)
        throw std::runtime_error(std::string("cannot look at the audio: ") + std::strerror(errno));
    m_fileSize = status.st_size;
    std::array<uint8_t, 12> riff{};
    if (readAt(0, riff.data(), riff.size()) < riff.size() || std::memcmp(riff.data(), "RIFF", 4) != 0 ||
        std::memcmp(riff.data() + 8, "WAVE", 4) != 0)
        unsupported("is not a WAV file");

    int64_t position = riff.size();
    for (;;) {
        std::array<uint8_t, 8> chunk{};
        if (readAt(position, chunk.data(), chunk.size()) < chunk.size())
            unsupported(m_channels == 0 ? "has no format chunk" : "has no audio data");
        const auto size = field<uint32_t>(chunk.data() + 4);
        position += static_cast<int64_t>(chunk.size());
        if (std::memcmp(chunk.data(), "data", 4) == 0) {
            if (m_channels == 0)
                unsupported("has its audio before the format chunk");
            // 0 and the largest number mean "unknown" in files that were written as a stream.
            const int64_t rest = m_fileSize - position;
            const bool known = size != 0 && size <= rest;
            m_offset = position;
            const int64_t frameBytes = int64_t{2} * m_channels;
            m_frames = (known ? static_cast<int64_t>(size) : rest) / frameBytes;
            m_end = m_offset + m_frames * frameBytes;
            if (m_frames == 0)
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
            m_channels = channels;
            m_rate = static_cast<int>(rate);
        }
        position += static_cast<int64_t>(size) + (size & 1U); // chunks are padded to even length
    }
}

size_t WavFile::read(std::span<int16_t> samples) {
    const auto frameBytes = size_t{2} * static_cast<size_t>(m_channels);
    const auto wanted = std::min(samples.size_bytes() / frameBytes * frameBytes, static_cast<size_t>(m_end - m_offset));
    const size_t count = readAt(m_offset, samples.data(), wanted);
    if (count < wanted)
        throw std::runtime_error("the audio file has become shorter");
    m_offset += static_cast<int64_t>(count);
    return count / 2;
}

} // namespace quillo::server
