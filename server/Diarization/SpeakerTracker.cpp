#include "Diarization/SpeakerTracker.h"

#include "Diarization/SpeakerClusters.h"
#include "Transcription/UtteranceSegmenter.h"

#include <algorithm>
#include <map>

namespace quillo::server {
namespace {

constexpr double frameSeconds = static_cast<double>(VoiceFeatures::frameSamples) / EnergyVad::sampleRate;
/// Voiced frames of a window: about two seconds of speech.
constexpr double fullWindow = 120;
/// Fewer say nothing about a voice.
constexpr double smallestWindow = 15;
/// Frames without a voiced sound after which somebody else may go on.
constexpr size_t pauseFrames = 25;
/// How much louder the other side of a stereo recording is when a sound is only its echo, as a ratio of energies.
constexpr double leakRatio = 4;

struct Window {
    double start = 0;
    double end = 0;
    int side = 0;
    VoiceStatistics statistics;
};

/// Energy of the frames of a channel, to compare it with the other.
class LevelMeter {
public:
    void push(std::span<const int16_t> samples) {
        for (const int16_t sample : samples) {
            sum_ += static_cast<float>(sample) * static_cast<float>(sample);
            if (++count_ == VoiceFeatures::frameSamples * framesOf) {
                levels_.push_back(sum_);
                sum_ = 0;
                count_ = 0;
            }
        }
    }

    [[nodiscard]] double energy(double start, double end) const {
        const auto index = [this](double seconds) {
            const auto frame = static_cast<size_t>(std::max(0.0, seconds) / (frameSeconds * framesOf));
            return std::min(frame, levels_.size());
        };
        double sum = 1;
        for (size_t i = index(start); i < index(end); ++i)
            sum += levels_[i];
        return sum;
    }

private:
    static constexpr size_t framesOf = 10;
    std::vector<float> levels_;
    float sum_ = 0;
    size_t count_ = 0;
};

/// One channel: cuts its speech into windows.
class Channel final : public UtteranceSink {
public:
    Channel(int side, VoiceFeatures& features, std::vector<Window>& windows)
        : side_(side), features_(features), windows_(windows) {}

    void push(std::span<const int16_t> samples) {
        level.push(samples);
        segmenter_.push(samples);
    }
    void finish() { segmenter_.finish(); }

    void utteranceBegan(int64_t firstSample) override {
        start_ = static_cast<double>(firstSample) / EnergyVad::sampleRate;
        samples_.clear();
    }
    void utteranceAudio(std::span<const int16_t> samples) override {
        samples_.insert(samples_.end(), samples.begin(), samples.end());
    }
    void utteranceEnded(int64_t /*endSample*/, bool /*cut*/) override {
        const auto frames = features_.analyse(samples_);
        samples_.clear();
        Window window;
        size_t lastVoiced = 0;
        const auto close = [&] {
            if (window.statistics.count > 0) {
                window.end = start_ + static_cast<double>(lastVoiced + 1) * frameSeconds;
                windows_.push_back(window);
            }
            window = {};
        };
        for (size_t i = 0; i < frames.size(); ++i) {
            if (!frames[i].voiced)
                continue;
            if (window.statistics.count >= fullWindow || i - lastVoiced > pauseFrames)
                close();
            if (window.statistics.count == 0) {
                window.start = start_ + static_cast<double>(i) * frameSeconds;
                window.side = side_;
            }
            window.statistics.add(frames[i].values);
            lastVoiced = i;
        }
        close();
    }
    void silence(int64_t /*position*/) override {}

    LevelMeter level;

private:
    int side_;
    VoiceFeatures& features_;
    std::vector<Window>& windows_;
    UtteranceSegmenter segmenter_{*this};
    std::vector<int16_t> samples_;
    double start_ = 0;
};

} // namespace

class SpeakerTracker::Implementation {
public:
    std::vector<SpeakerTurn> finish() {
        for (Channel* channel : {&left_, &right_}) {
            channel->finish();
        }
        if (isStereo_)
            std::erase_if(windows_, [this](const Window& window) { return isLeak(window); });
        std::ranges::sort(windows_, {}, &Window::start);
        return join(speakers());
    }

    VoiceFeatures features_;
    std::vector<Window> windows_;
    Channel left_{0, features_, windows_};
    Channel right_{1, features_, windows_};
    bool isStereo_ = false;

private:
    [[nodiscard]] bool isLeak(const Window& window) const {
        const double own = (window.side == 0 ? left_ : right_).level.energy(window.start, window.end);
        const double other = (window.side == 0 ? right_ : left_).level.energy(window.start, window.end);
        return other > own * leakRatio;
    }

    /// The speaker of each window. Windows that are too short to tell take the one before them on their side.
    [[nodiscard]] std::vector<int> speakers() const {
        SpeakerClusters clusters;
        for (const Window& window : windows_) {
            if (window.statistics.count >= smallestWindow)
                clusters.add(window.statistics, window.side);
        }
        const auto groups = clusters.finish();
        std::vector<int> result(windows_.size(), -1);
        std::map<int, int> latest;
        size_t next = 0;
        for (size_t i = 0; i < windows_.size(); ++i) {
            if (windows_[i].statistics.count >= smallestWindow)
                latest[windows_[i].side] = groups[next++];
            if (const auto known = latest.find(windows_[i].side); known != latest.end())
                result[i] = known->second;
        }
        // What came before the first speaker of its side was known.
        for (size_t i = 0; i < windows_.size(); ++i) {
            if (result[i] < 0 && latest.contains(windows_[i].side))
                result[i] = firstOf(windows_[i].side, result);
        }
        return result;
    }

    [[nodiscard]] int firstOf(int side, const std::vector<int>& speakers) const {
        for (size_t i = 0; i < windows_.size(); ++i) {
            if (windows_[i].side == side && speakers[i] >= 0)
                return speakers[i];
        }
        return -1;
    }

    [[nodiscard]] std::vector<SpeakerTurn> join(const std::vector<int>& speakers) const {
        std::vector<SpeakerTurn> turns;
        std::map<int, int> numbers; // by the order in which they begin
        for (size_t i = 0; i < windows_.size(); ++i) {
            if (speakers[i] < 0)
                continue;
            const int speaker = numbers.emplace(speakers[i], static_cast<int>(numbers.size())).first->second;
            if (!turns.empty() && turns.back().speaker == speaker)
                turns.back().end = std::max(turns.back().end, windows_[i].end);
            else
                turns.push_back({windows_[i].start, windows_[i].end, speaker});
        }
        return turns;
    }
};

SpeakerTracker::SpeakerTracker() : implementation_(std::make_unique<Implementation>()) {}
SpeakerTracker::~SpeakerTracker() = default;

void SpeakerTracker::push(std::span<const int16_t> mono) { implementation_->left_.push(mono); }

void SpeakerTracker::push(std::span<const int16_t> left, std::span<const int16_t> right) {
    implementation_->isStereo_ = true;
    implementation_->left_.push(left);
    implementation_->right_.push(right);
}

std::vector<SpeakerTurn> SpeakerTracker::finish() { return implementation_->finish(); }

} // namespace quillo::server
