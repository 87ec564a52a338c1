#include "Meetings/MeetingAudio.h"

#include "Foundation/Log.h"

#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace quillo::server {
namespace {

constexpr size_t samplesPerSecond = 16000;
/// Half a second: few writes, and little that is not on the disk.
constexpr size_t block = samplesPerSecond / 2;

/// The header of a WAV file that is written as a stream: its lengths say "unknown".
/// RIFF, "Multiple Channel Audio Data and WAVE Files" (Microsoft, 2007).
std::string header() {
    static_assert(std::endian::native == std::endian::little, "the fields of a WAV file are little-endian");
    std::string bytes;
    const auto number = [&bytes](auto value) {
        std::array<char, sizeof value> raw{};
        std::memcpy(raw.data(), &value, raw.size());
        bytes.append(raw.data(), raw.size());
    };
    constexpr uint32_t unknown = 0xffffffff;
    bytes += "RIFF";
    number(unknown);
    bytes += "WAVEfmt ";
    number(uint32_t{16});
    number(uint16_t{1}); // PCM
    number(uint16_t{1}); // channels
    number(uint32_t{samplesPerSecond});
    number(uint32_t{samplesPerSecond * 2});
    number(uint16_t{2});
    number(uint16_t{16});
    bytes += "data";
    number(unknown);
    return bytes;
}

} // namespace

MeetingAudio::MeetingAudio(Create create, Work work) : m_create(std::move(create)), m_work(std::move(work)) {}

void MeetingAudio::add(std::span<const int16_t> samples) {
    {
        const std::scoped_lock lock(m_mutex);
        if (m_hasFailed)
            return;
        m_pending.insert(m_pending.end(), samples.begin(), samples.end());
        if (m_isScheduled || m_pending.size() < block)
            return;
        m_isScheduled = true;
    }
    m_work([self = shared_from_this()] { self->writePending(); });
}

double MeetingAudio::backlogSeconds() const {
    const std::scoped_lock lock(m_mutex);
    return static_cast<double>(m_pending.size()) / samplesPerSecond;
}

void MeetingAudio::writePending() {
    const std::scoped_lock writing(m_writing);
    std::vector<int16_t> samples;
    {
        const std::scoped_lock lock(m_mutex);
        samples = std::exchange(m_pending, {});
        m_isScheduled = false;
    }
    if (m_failure)
        return;
    try {
        if (!m_file) {
            m_file = m_create();
            write(header());
        }
        write({reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(int16_t)});
    } catch (const std::exception& error) {
        log(LogLevel::error, "meetings", std::string("cannot keep the audio of a meeting: ") + error.what());
        m_failure = std::current_exception();
        m_file.reset(); // an incomplete file would only take room
        const std::scoped_lock lock(m_mutex);
        m_hasFailed = true;
        m_pending.clear();
    }
}

void MeetingAudio::write(std::string_view bytes) {
    m_file->write(bytes);
    m_hash.update(bytes);
}

MeetingAudio::Finished MeetingAudio::finish() {
    writePending();
    const std::scoped_lock writing(m_writing);
    if (m_failure)
        std::rethrow_exception(m_failure);
    m_file->close();
    return {std::move(m_file), m_hash.finish()};
}

} // namespace quillo::server
