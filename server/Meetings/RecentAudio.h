#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace quillo::server {

/// The last minutes of a dictation, in case it becomes a meeting. Not thread-safe.
class RecentAudio {
public:
    /// Two minutes, 3.8 MB: calls are noticed at their beginning.
    static constexpr size_t maxSamples = size_t{2} * 60 * 16000;

    void add(std::span<const int16_t> samples);
    [[nodiscard]] size_t size() const { return m_size; }
    /// What is kept, in order; empty afterwards.
    std::deque<std::vector<int16_t>> take();

private:
    std::deque<std::vector<int16_t>> m_chunks;
    size_t m_size = 0;
};

} // namespace quillo::server
