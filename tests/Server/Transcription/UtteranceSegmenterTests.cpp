#include "Server/Transcription/Support/Speech.h"
#include "Transcription/UtteranceSegmenter.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quillo::server::test {
namespace {

class Recording final : public UtteranceSink {
public:
    struct Utterance {
        int64_t start = 0;
        int64_t end = 0;
        bool cut = false;
        Samples samples;
    };
    std::vector<Utterance> utterances;

    void utteranceBegan(int64_t firstSample) override { utterances.push_back({firstSample, 0, false, {}}); }
    void utteranceAudio(std::span<const int16_t> samples) override {
        utterances.back().samples.insert(utterances.back().samples.end(), samples.begin(), samples.end());
    }
    void utteranceEnded(int64_t endSample, bool cut) override {
        utterances.back().end = endSample;
        utterances.back().cut = cut;
    }
    void silence(int64_t /*position*/) override {}
};

Recording segment(const std::vector<Samples>& pieces) {
    Recording recording;
    UtteranceSegmenter segmenter(recording);
    for (const Samples& piece : pieces)
        segmenter.push(piece);
    segmenter.finish();
    return recording;
}

TEST(UtteranceSegmenter, FindsSpeechWithWhatPrecededIt) {
    const Recording recording = segment({noise(2), buzz(1, 3000), noise(2), buzz(0.5, 3000)});
    ASSERT_EQ(recording.utterances.size(), 2U);
    const auto& first = recording.utterances[0];
    EXPECT_NEAR(static_cast<double>(first.start) / 16000, 2 - 0.35, 0.1);
    EXPECT_NEAR(static_cast<double>(first.end) / 16000, 3.6, 0.15);
    EXPECT_EQ(first.end - first.start, static_cast<int64_t>(first.samples.size()));
    EXPECT_FALSE(first.cut);
    EXPECT_EQ(recording.utterances[1].end, 16000 * 11 / 2);
}

TEST(UtteranceSegmenter, HearsADictationThatBeginsWithAWord) {
    const Recording recording = segment({buzz(0.4, 3000), noise(2)});
    ASSERT_EQ(recording.utterances.size(), 1U);
    EXPECT_EQ(recording.utterances[0].start, 0);
}

TEST(UtteranceSegmenter, LearnsALoudRoomAndStillHearsSpeechInIt) {
    Samples room = noise(8);
    std::ranges::transform(room, room.begin(), [](int16_t sample) { return static_cast<int16_t>(sample * 60); });
    Samples speech = buzz(1, 8000);
    const Recording recording = segment({room, speech, room});
    ASSERT_GE(recording.utterances.size(), 1U);
    ASSERT_LE(recording.utterances.size(), 2U); // the first moments of the room may be taken for speech
    const auto& last = recording.utterances.back();
    EXPECT_NEAR(static_cast<double>(last.start) / 16000, 8 - 0.35, 0.1);
    EXPECT_LT(static_cast<double>(last.end) / 16000, 10.5);
}

TEST(UtteranceSegmenter, IgnoresClicksAndAConstantOffset) {
    Samples offset = noise(3);
    std::ranges::transform(offset, offset.begin(), [](int16_t sample) { return static_cast<int16_t>(sample + 2000); });
    std::fill_n(offset.begin() + 20000, 300, int16_t{9000});
    EXPECT_TRUE(segment({offset}).utterances.empty());
}

TEST(UtteranceSegmenter, CutsWithoutLosingOrRepeatingASample) {
    Samples speech = noise(70);
    for (size_t i = 16000; i < speech.size(); ++i) // syllables: a level that never rests for long
        speech[i] = static_cast<int16_t>(speech[i] + (i / 3200 % 2 == 0 ? 3000 : 500) * (i % 64 < 32 ? 1 : -1));
    const Recording recording = segment({speech});
    ASSERT_EQ(recording.utterances.size(), 3U);
    EXPECT_TRUE(recording.utterances[0].cut);
    for (size_t i = 0; i < recording.utterances.size(); ++i) {
        const auto& part = recording.utterances[i];
        const auto offset = speech.begin() + static_cast<ptrdiff_t>(part.start);
        EXPECT_TRUE(std::equal(part.samples.begin(), part.samples.end(), offset));
        if (i > 0) {
            EXPECT_EQ(part.start, recording.utterances[i - 1].end);
        }
    }
}

} // namespace
} // namespace quillo::server::test
