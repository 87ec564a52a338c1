#include "Transcription/UtteranceSegmenter.h"

#include <algorithm>

namespace quillo::server {

void UtteranceSegmenter::push(std::span<const int16_t> samples) {
    while (!samples.empty()) {
        if (incomplete_.empty() && samples.size() >= EnergyVad::frameSamples) {
            processFrame(samples.first(EnergyVad::frameSamples));
            samples = samples.subspan(EnergyVad::frameSamples);
            continue;
        }
        const size_t count = std::min(samples.size(), EnergyVad::frameSamples - incomplete_.size());
        incomplete_.insert(incomplete_.end(), samples.begin(), samples.begin() + static_cast<ptrdiff_t>(count));
        samples = samples.subspan(count);
        if (incomplete_.size() == EnergyVad::frameSamples) {
            processFrame(incomplete_);
            incomplete_.clear();
        }
    }
}

void UtteranceSegmenter::processFrame(std::span<const int16_t> frame) {
    const bool speech = vad_.process(frame);
    position_ += static_cast<int64_t>(frame.size());
    if (speech && !speaking_) {
        speaking_ = true;
        utteranceStart_ = position_ - static_cast<int64_t>(frame.size() + preRoll_.size());
        sink_.utteranceBegan(utteranceStart_);
        if (!preRoll_.empty())
            sink_.utteranceAudio(preRoll_);
        preRoll_.clear();
    }
    if (!speaking_) {
        preRoll_.insert(preRoll_.end(), frame.begin(), frame.end());
        if (preRoll_.size() > preRollSamples)
            preRoll_.erase(preRoll_.begin(),
                           preRoll_.begin() + static_cast<ptrdiff_t>(preRoll_.size() - preRollSamples));
        sink_.silence(position_);
        return;
    }
    sink_.utteranceAudio(frame);
    const bool tooLong = position_ - utteranceStart_ >= longestUtterance;
    if (!speech || tooLong) {
        speaking_ = false;
        sink_.utteranceEnded(position_, speech);
    }
}

void UtteranceSegmenter::finish() {
    position_ += static_cast<int64_t>(incomplete_.size());
    if (speaking_) {
        if (!incomplete_.empty())
            sink_.utteranceAudio(incomplete_);
        speaking_ = false;
        sink_.utteranceEnded(position_, false);
    }
    incomplete_.clear();
    preRoll_.clear();
}

} // namespace quillo::server
