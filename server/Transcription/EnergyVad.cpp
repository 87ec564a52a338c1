#include "Transcription/EnergyVad.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillo::server {

namespace {

constexpr int framesPerBucket = 25;
constexpr double onsetMargin = 9;
constexpr double releaseMargin = 6;
/// Digital silence has no noise to measure, so no level below this counts as background.
constexpr double quietest = -68;
/// Assumed until a second of real background was measured, because a dictation may begin with a word.
constexpr double assumedBackground = -55;
constexpr double unknown = std::numeric_limits<double>::infinity();

} // namespace

double levelOf(std::span<const int16_t> samples) {
    if (samples.empty())
        return -100;
    double sum = 0;
    double squares = 0;
    for (const int16_t sample : samples) {
        sum += sample;
        squares += static_cast<double>(sample) * sample;
    }
    const double count = static_cast<double>(samples.size());
    const double variance = squares / count - (sum / count) * (sum / count);
    return variance < 1e-3 ? -100 : std::max(-100.0, 10 * std::log10(variance / (32768.0 * 32768.0)));
}

EnergyVad::EnergyVad() {
    m_lowest.fill(unknown);
    // Two buckets before the end, so that the assumption expires after a second.
    m_lowest[2] = assumedBackground;
}

void EnergyVad::followBackground(double level) {
    m_smoothed = m_first ? level : m_smoothed + 0.4 * (level - m_smoothed);
    m_first = false;
    m_lowest[m_bucket] = std::min(m_lowest[m_bucket], m_smoothed);
    if (++m_framesInBucket == framesPerBucket) {
        m_framesInBucket = 0;
        m_bucket = (m_bucket + 1) % bucketCount;
        m_lowest[m_bucket] = unknown;
    }
}

bool EnergyVad::process(std::span<const int16_t> frame) {
    const double level = levelOf(frame);
    followBackground(level);
    const double background = std::max(quietest, *std::ranges::min_element(m_lowest));
    if (m_inSpeech) {
        m_run = level < background + releaseMargin ? m_run + 1 : 0;
        if (m_run == hangoverFrames) {
            m_inSpeech = false;
            m_run = 0;
        }
    } else {
        m_run = level > background + onsetMargin ? m_run + 1 : 0;
        if (m_run == onsetFrames) {
            m_inSpeech = true;
            m_run = 0;
        }
    }
    return m_inSpeech;
}

} // namespace quillo::server
