#pragma once

#include <array>
#include <cstddef>

namespace quillo {

/// The heights of the pill's bars over time: a ring of recent levels while recording, a calm or a travelling wave
/// otherwise. `tick` advances it, about thirty times a second. Plain arithmetic without a clock.
class WaveformModel {
public:
    static constexpr std::size_t barCount = 22;
    static constexpr int ticksPerBar = 2;

    enum class Mode {
        calm,      ///< all bars breathe together: the connection is being made
        live,      ///< the latest levels, the newest at the right
        travelling ///< a crest moves through the bars: the server is working
    };

    /// `level` is 0 to 1 and used in `live` mode; a value that is not a number counts as silence.
    void tick(Mode mode, float level);
    /// Bar heights, 0 to 1, left to right.
    [[nodiscard]] const std::array<float, barCount>& bars() const { return m_bars; }
    /// How far the bars have moved to the left since the newest one was pushed, in bars, 0 to below 1.
    [[nodiscard]] float offset() const;
    /// Forgets the levels of the previous recording.
    void clear();

private:
    [[nodiscard]] float target(Mode mode, std::size_t bar) const;

    std::array<float, barCount> m_ring{}; ///< recent levels, the oldest at m_head
    std::size_t m_head = 0;
    float m_envelope = 0;
    float m_phase = 0;
    int m_tick = 0;
    int m_blend = 0; ///< ticks left in the transition between two modes
    Mode m_mode = Mode::calm;
    std::array<float, barCount> m_bars{};
};

} // namespace quillo
