#include "UI/Controls/WaveformModel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillo {

namespace {

// Bars rise fast and fall slowly, which looks natural for speech. Each value is the share of the remaining distance
// covered per tick.
constexpr float attack = 0.65F;
constexpr float release = 0.22F;
constexpr int blendTicks = 8;

} // namespace

void WaveformModel::tick(Mode mode, float level) {
    if (mode != m_mode) {
        m_mode = mode;
        m_blend = blendTicks;
    }
    const float heard = std::isfinite(level) ? std::clamp(level, 0.0F, 1.0F) : 0.0F;
    const float wanted = mode == Mode::live ? heard : 0.0F;
    m_envelope += (wanted - m_envelope) * (wanted > m_envelope ? attack : release);
    m_phase = std::fmod(m_phase + 1.0F / 60.0F, 1.0F);

    m_tick = (m_tick + 1) % ticksPerBar;
    if (m_tick == 0) {
        m_ring[m_head] = m_envelope;
        m_head = (m_head + 1) % barCount;
    }
    for (std::size_t bar = 0; bar < barCount; ++bar) {
        const float next = target(mode, bar);
        // Smooth the bars only between two modes; within a mode they follow exactly, because smoothing would blur the
        // scrolling wave.
        m_bars[bar] = m_blend > 0 ? m_bars[bar] + (next - m_bars[bar]) / static_cast<float>(m_blend) : next;
    }
    m_blend = std::max(0, m_blend - 1);
}

float WaveformModel::offset() const {
    return m_mode == Mode::live ? static_cast<float>(m_tick) / static_cast<float>(ticksPerBar) : 0.0F;
}

void WaveformModel::clear() { *this = WaveformModel(); }

float WaveformModel::target(Mode mode, std::size_t bar) const {
    const auto position = static_cast<float>(bar) / static_cast<float>(barCount - 1);
    constexpr auto turn = 2.0F * std::numbers::pi_v<float>;
    switch (mode) {
    case Mode::calm:
        return 0.20F + 0.14F * std::sin(turn * (m_phase + 0.35F * position));
    case Mode::live:
        return m_ring[(m_head + bar) % barCount];
    case Mode::travelling: {
        const float crest = m_phase * 1.6F - 0.3F;
        const float distance = (position - crest) / 0.16F;
        return 0.06F + 0.52F * std::exp(-distance * distance);
    }
    }
    return 0;
}

} // namespace quillo
