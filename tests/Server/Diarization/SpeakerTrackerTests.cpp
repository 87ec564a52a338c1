#include "Diarization/PitchTracker.h"
#include "Diarization/SpeakerTracker.h"
#include "Server/Transcription/Support/Speech.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <random>

using namespace quillo::server;
using namespace quillo::server::test;

namespace {

constexpr double rate = 16000;

struct Spoken {
    double start = 0;
    double end = 0;
    char voice = 0;
};

/// Speech of several voices after each other, and who speaks when.
struct Conversation {
    Samples samples;
    std::vector<Spoken> spoken;

    /// 'r' and 's', 'a', 'k' name the voices rms, slt, awb, kal16.
    explicit Conversation(const std::string& voices) {
        size_t sentence = 0;
        for (const char voice : voices) {
            const std::string name = voice == 'r' ? "rms" : voice == 's' ? "slt" : voice == 'a' ? "awb" : "kal16";
            const auto speech = speak(name, sentences()[sentence++ % sentences().size()].text);
            const double start = static_cast<double>(samples.size()) / rate + 1; // a second of noise comes first
            samples.insert(samples.end(), speech.begin(), speech.end());
            spoken.push_back({start, static_cast<double>(samples.size()) / rate - 0.8, voice});
        }
    }
};

int speakerAt(const std::vector<SpeakerTurn>& turns, double time) {
    for (const auto& turn : turns) {
        if (time >= turn.start && time <= turn.end)
            return turn.speaker;
    }
    return -1;
}

/// Share of the spoken time that is given to the right speaker; speakers are numbered as they begin.
double rightShare(const Conversation& conversation, const std::vector<SpeakerTurn>& turns) {
    std::string order;
    int right = 0;
    int total = 0;
    for (const auto& [start, end, voice] : conversation.spoken) {
        if (order.find(voice) == std::string::npos)
            order += voice;
        for (double time = start + 0.2; time < end - 0.2; time += 0.05) {
            ++total;
            right += speakerAt(turns, time) == static_cast<int>(order.find(voice)) ? 1 : 0;
        }
    }
    return static_cast<double>(right) / total;
}

int speakerCount(const std::vector<SpeakerTurn>& turns) {
    int count = 0;
    for (const auto& turn : turns)
        count = std::max(count, turn.speaker + 1);
    return count;
}

struct Case {
    const char* voices;
    int speakers;
};

TEST(SpeakerTracker, TellsVoicesApart) {
    const Case cases[] = {
        {"rrrrrrrr", 1}, {"ssss", 1},     {"aaaa", 1},     {"kkkk", 1}, {"rsrs", 2}, {"ssrrsr", 2},
        {"asas", 2},     {"rsakrsak", 4}, {"rkrkrkrk", 2}, {"srk", 3},  {"rsa", 3},  {"rssrsrrs", 2},
    };
    for (const auto& [voices, speakers] : cases) {
        const Conversation conversation(voices);
        SpeakerTracker tracker;
        // In pieces of an odd size, as they come from a file.
        for (size_t i = 0; i < conversation.samples.size(); i += 12345)
            tracker.push(
                std::span(conversation.samples).subspan(i, std::min<size_t>(12345, conversation.samples.size() - i)));
        const auto turns = tracker.finish();
        EXPECT_EQ(speakerCount(turns), speakers) << voices;
        EXPECT_GT(rightShare(conversation, turns), 0.9) << voices;
        for (size_t i = 1; i < turns.size(); ++i)
            EXPECT_GE(turns[i].start, turns[i - 1].start);
    }
}

TEST(SpeakerTracker, TakesTheSidesOfAStereoRecordingForDifferentPeople) {
    const Conversation left("rr");
    const Conversation right("r");
    // The same voice on both sides, one after the other, and a faint echo of the left on the right.
    Samples leftSide = left.samples;
    Samples rightSide(left.samples.size());
    for (size_t i = 0; i < left.samples.size(); ++i)
        rightSide[i] = static_cast<int16_t>(left.samples[i] / 4);
    leftSide.resize(left.samples.size() + right.samples.size());
    rightSide.insert(rightSide.end(), right.samples.begin(), right.samples.end());
    SpeakerTracker tracker;
    tracker.push(leftSide, rightSide);
    const auto turns = tracker.finish();
    EXPECT_EQ(speakerCount(turns), 2);
    EXPECT_EQ(speakerAt(turns, left.spoken[0].start + 0.8), 0);
    EXPECT_EQ(speakerAt(turns, left.spoken[1].start + 0.8), 0);
    EXPECT_EQ(speakerAt(turns, static_cast<double>(left.samples.size()) / rate + right.spoken[0].start + 0.8), 1);
}

TEST(SpeakerTracker, HearsNobodyInSilenceAndNoise) {
    std::mt19937 generator(1); // NOLINT: the same noise on every run
    std::normal_distribution<double> loud(0, 2000);
    Samples noisy(160000);
    for (auto& sample : noisy)
        sample = static_cast<int16_t>(loud(generator));
    for (const Samples& samples : {Samples(160000), noise(10), noisy, Samples()}) {
        SpeakerTracker tracker;
        tracker.push(samples);
        EXPECT_EQ(tracker.finish().size(), 0U);
    }
}

TEST(Pitch, IsThatOfTheSoundAtEveryLevel) {
    for (const double frequency : {65.0, 100.0, 181.0, 220.0, 390.0}) {
        for (const double level : {300.0, 30000.0}) {
            std::array<int16_t, pitchWindowSamples> window{};
            for (size_t i = 0; i < window.size(); ++i) {
                const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
                window[i] = static_cast<int16_t>(level * (0.6 * std::sin(phase) + 0.4 * std::sin(2 * phase + 1)));
            }
            const auto pitch = pitchOf(window);
            ASSERT_TRUE(pitch) << frequency;
            EXPECT_NEAR(*pitch, frequency, frequency * 0.03) << level;
        }
    }
}

} // namespace
