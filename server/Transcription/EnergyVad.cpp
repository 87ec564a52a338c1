#include "Transcription/EnergyVad.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillo::server {

namespace {

constexpr int framesPerBucket = 25;
constexpr double onsetMargin = 9;
constexpr double releaseMargin = 6;
/// Digital silence has no noise to measure: nothing below this counts as background.
constexpr double quietest = -68;
/// Assumed until a second of real background was heard: a dictation may begin with a word.
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
    lowest_.fill(unknown);
    // Two buckets from its end: the assumption is forgotten after a second.
    lowest_[2] = assumedBackground;
}

void EnergyVad::followBackground(double level) {
    smoothed_ = first_ ? level : smoothed_ + 0.4 * (level - smoothed_);
    first_ = false;
    lowest_[bucket_] = std::min(lowest_[bucket_], smoothed_);
    if (++framesInBucket_ == framesPerBucket) {
        framesInBucket_ = 0;
        bucket_ = (bucket_ + 1) % bucketCount;
        lowest_[bucket_] = unknown;
    }
}

bool EnergyVad::process(std::span<const int16_t> frame) {
    const double level = levelOf(frame);
    followBackground(level);
    const double background = std::max(quietest, *std::ranges::min_element(lowest_));
    if (inSpeech_) {
        run_ = level < background + releaseMargin ? run_ + 1 : 0;
        if (run_ == hangoverFrames) {
            inSpeech_ = false;
            run_ = 0;
        }
    } else {
        run_ = level > background + onsetMargin ? run_ + 1 : 0;
        if (run_ == onsetFrames) {
            inSpeech_ = true;
            run_ = 0;
        }
    }
    return inSpeech_;
}

} // namespace quillo::server
