#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace quillo {

/// Computes how long ago an event happened from the X server's timestamps: milliseconds of the server's own clock, in
/// 32 bits that wrap (X Window System Protocol, "Timestamp"). The fastest delivery of the last minutes counts as
/// immediate, so that neither the offset of the clocks nor, with a remote server, their drift matters.
class ServerTime {
public:
    using Instant = std::chrono::steady_clock::time_point;

    /// `now` is when the event was read. Never negative.
    [[nodiscard]] std::chrono::milliseconds ageOf(uint32_t timestamp, Instant now) {
        const auto local = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
        const uint32_t distance = static_cast<uint32_t>(local) - timestamp;
        if (!m_current || now - m_currentSince > window) {
            m_previous = m_current;
            m_current = distance;
            m_currentSince = now;
        }
        m_current = lesser(*m_current, distance);
        const uint32_t immediate = m_previous ? lesser(*m_previous, *m_current) : *m_current;
        return std::chrono::milliseconds(static_cast<int32_t>(distance - immediate));
    }

private:
    static constexpr auto window = std::chrono::minutes(2);

    [[nodiscard]] static uint32_t lesser(uint32_t one, uint32_t other) {
        return static_cast<int32_t>(one - other) < 0 ? one : other;
    }

    std::optional<uint32_t> m_previous; ///< the smallest offset of the previous window
    std::optional<uint32_t> m_current;
    Instant m_currentSince;
};

} // namespace quillo
