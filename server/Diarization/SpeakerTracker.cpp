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
/// Fewer do not characterise a voice.
constexpr double smallestWindow = 15;
/// Frames without a voiced sound after which another speaker may continue.
constexpr size_t pauseFrames = 25;
/// Ratio of energies above which a sound is only an echo of the other side of a stereo recording.
constexpr double leakRatio = 4;

struct Window {
    double start = 0;
    double end = 0;
    int side = 0;
    VoiceStatistics statistics;
};

/// Energy of the frames of a channel, for comparison with the other one.
class LevelMeter {
public:
    void push(std::span<const int16_t> samples) {
        for (const int16_t sample : samples) {
            m_sum += static_cast<float>(sample) * static_cast<float>(sample);
            if (++m_count == VoiceFeatures::frameSamples * framesOf) {
                m_levels.push_back(m_sum);
                m_sum = 0;
                m_count = 0;
            }
        }
    }

    [[nodiscard]] double energy(double start, double end) const {
        const auto index = [this](double seconds) {
            const auto frame = static_cast<size_t>(std::max(0.0, seconds) / (frameSeconds * framesOf));
            return std::min(frame, m_levels.size());
        };
        double sum = 1;
        for (size_t i = index(start); i < index(end); ++i)
            sum += m_levels[i];
        return sum;
    }

private:
    static constexpr size_t framesOf = 10;
    std::vector<float> m_levels;
    float m_sum = 0;
    size_t m_count = 0;
};

/// Cuts the speech of one channel into windows.
class Channel final : public UtteranceSink {
public:
    Channel(int side, VoiceFeatures& features, std::vector<Window>& windows)
        : m_side(side), m_features(features), m_windows(windows) {}

    void push(std::span<const int16_t> samples) {
        level.push(samples);
        m_segmenter.push(samples);
    }
    void finish() { m_segmenter.finish(); }

    void utteranceBegan(int64_t firstSample) override {
        m_start = static_cast<double>(firstSample) / EnergyVad::sampleRate;
        m_samples.clear();
    }
    void utteranceAudio(std::span<const int16_t> samples) override {
        m_samples.insert(m_samples.end(), samples.begin(), samples.end());
    }
    void utteranceEnded(int64_t /*endSample*/, bool /*cut*/) override {
        const auto frames = m_features.analyse(m_samples);
        m_samples.clear();
        Window window;
        size_t lastVoiced = 0;
        const auto close = [&] {
            if (window.statistics.count > 0) {
                window.end = m_start + static_cast<double>(lastVoiced + 1) * frameSeconds;
                m_windows.push_back(window);
            }
            window = {};
        };
        for (size_t i = 0; i < frames.size(); ++i) {
            if (!frames[i].voiced)
                continue;
            if (window.statistics.count >= fullWindow || i - lastVoiced > pauseFrames)
                close();
            if (window.statistics.count == 0) {
                window.start = m_start + static_cast<double>(i) * frameSeconds;
                window.side = m_side;
            }
            window.statistics.add(frames[i].values);
            lastVoiced = i;
        }
        close();
    }
    void silence(int64_t /*position*/) override {}

    LevelMeter level;

private:
    int m_side;
    VoiceFeatures& m_features;
    std::vector<Window>& m_windows;
    UtteranceSegmenter m_segmenter{*this};
    std::vector<int16_t> m_samples;
    double m_start = 0;
};

} // namespace

class SpeakerTracker::Implementation {
public:
    std::vector<SpeakerTurn> finish() {
        for (Channel* channel : {&m_left, &m_right}) {
            channel->finish();
        }
        if (m_isStereo)
            std::erase_if(m_windows, [this](const Window& window) { return isLeak(window); });
        std::ranges::sort(m_windows, {}, &Window::start);
        return join(speakers());
    }

    VoiceFeatures m_features;
    std::vector<Window> m_windows;
    Channel m_left{0, m_features, m_windows};
    Channel m_right{1, m_features, m_windows};
    bool m_isStereo = false;

private:
    [[nodiscard]] bool isLeak(const Window& window) const {
        const double own = (window.side == 0 ? m_left : m_right).level.energy(window.start, window.end);
        const double other = (window.side == 0 ? m_right : m_left).level.energy(window.start, window.end);
        return other > own * leakRatio;
    }

    /// The speaker of each window. Windows that are too short for a decision get the previous speaker of their side.
    [[nodiscard]] std::vector<int> speakers() const {
        SpeakerClusters clusters;
        for (const Window& window : m_windows) {
            if (window.statistics.count >= smallestWindow)
                clusters.add(window.statistics, window.side);
        }
        const auto groups = clusters.finish();
        std::vector<int> result(m_windows.size(), -1);
        std::map<int, int> latest;
        size_t next = 0;
        for (size_t i = 0; i < m_windows.size(); ++i) {
            if (m_windows[i].statistics.count >= smallestWindow)
                latest[m_windows[i].side] = groups[next++];
            if (const auto known = latest.find(m_windows[i].side); known != latest.end())
                result[i] = known->second;
        }
        // Speech before the first known speaker of its side.
        for (size_t i = 0; i < m_windows.size(); ++i) {
            if (result[i] < 0 && latest.contains(m_windows[i].side))
                result[i] = firstOf(m_windows[i].side, result);
        }
        return result;
    }

    [[nodiscard]] int firstOf(int side, const std::vector<int>& speakers) const {
        for (size_t i = 0; i < m_windows.size(); ++i) {
            if (m_windows[i].side == side && speakers[i] >= 0)
                return speakers[i];
        }
        return -1;
    }

    [[nodiscard]] std::vector<SpeakerTurn> join(const std::vector<int>& speakers) const {
        std::vector<SpeakerTurn> turns;
        std::map<int, int> numbers; // numbered in the order in which they begin
        for (size_t i = 0; i < m_windows.size(); ++i) {
            if (speakers[i] < 0)
                continue;
            const int speaker = numbers.emplace(speakers[i], static_cast<int>(numbers.size())).first->second;
            if (!turns.empty() && turns.back().speaker == speaker)
                turns.back().end = std::max(turns.back().end, m_windows[i].end);
            else
                turns.push_back({m_windows[i].start, m_windows[i].end, speaker, m_windows[i].side});
        }
        return turns;
    }
};

SpeakerTracker::SpeakerTracker() : m_implementation(std::make_unique<Implementation>()) {}
SpeakerTracker::~SpeakerTracker() = default;

void SpeakerTracker::push(std::span<const int16_t> mono) { m_implementation->m_left.push(mono); }

void SpeakerTracker::push(std::span<const int16_t> left, std::span<const int16_t> right) {
    m_implementation->m_isStereo = true;
    m_implementation->m_left.push(left);
    m_implementation->m_right.push(right);
}

std::vector<SpeakerTurn> SpeakerTracker::finish() { return m_implementation->finish(); }

} // namespace quillo::server
