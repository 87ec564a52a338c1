#include "UI/Welcome/SpeechDetector.h"

#include <algorithm>
#include <cmath>

namespace quillo {

namespace {

// -45 dBFS: below this level recognition is poor, even for a close voice on a quiet microphone.
constexpr float faintest = 0.25F;
// 6 dB: the dips between syllables and words are deeper than this; the variation of a fan is smaller.
constexpr float swing = 0.1F;
constexpr int enoughRises = 3;
constexpr std::chrono::milliseconds enough{350};
constexpr std::chrono::milliseconds longestStep{100};
constexpr std::chrono::milliseconds longestPause{1200};

} // namespace

bool SpeechDetector::hear(float level, Clock::Instant time) {
    const float heard = std::isfinite(level) ? std::clamp(level, 0.0F, 1.0F) : 0.0F;
    // A gap in the levels counts only as `longestStep`, because it is unknown what happened in it.
    const auto step = m_last ? std::min<Clock::Duration>(time - *m_last, longestStep) : Clock::Duration{};
    m_last = time;
    follow(heard);
    if (heard >= faintest) {
        m_loudFor += step;
        m_lastLoud = time;
    } else if (time - m_lastLoud > longestPause) {
        m_loudFor = {};
        m_rises = 0;
    }
    m_heard = m_heard || (m_loudFor >= enough && m_rises >= enoughRises);
    return m_heard;
}

void SpeechDetector::follow(float level) {
    if (m_isRising ? level > m_extreme : level < m_extreme)
        m_extreme = level;
    if (m_isRising && level < m_extreme - swing) {
        m_isRising = false;
        m_extreme = level;
    } else if (!m_isRising && level > std::max(m_extreme + swing, faintest)) {
        m_isRising = true;
        m_extreme = level;
        ++m_rises;
    }
}

} // namespace quillo
