#include "Meetings/RecentAudio.h"

#include <utility>

namespace quillo::server {

void RecentAudio::add(std::span<const int16_t> samples) {
    if (samples.empty())
        return;
    m_chunks.emplace_back(samples.begin(), samples.end());
    m_size += samples.size();
    while (m_size > maxSamples) {
        m_size -= m_chunks.front().size();
        m_chunks.pop_front();
    }
}

std::deque<std::vector<int16_t>> RecentAudio::take() {
    m_size = 0;
    return std::exchange(m_chunks, {});
}

} // namespace quillo::server
