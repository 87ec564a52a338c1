#include "Services/Microphone/AudioLevel.h"
#include "Services/Microphone/AUHALAudioService.h"
#include "Services/Microphone/AUHALCaptureContext.h"
#include "Support/AudioCapture.h"

#include <cmath>
#include <numbers>

namespace quillo::test {

namespace {

std::vector<float> sine(double rate, double seconds, double hertz = 440, double amplitude = 0.5) {
    std::vector<float> samples(static_cast<size_t>(std::llround(rate * seconds)));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] =
            static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return samples;
}

TEST(AudioLevelTests, MapsDecibelsLinearly) {
    const std::vector<std::tuple<const char*, std::vector<float>, float>> cases{
        {"nothing", {}, 0.0F},
        {"silence", std::vector<float>(480, 0.0F), 0.0F},
        {"full-scale square", {1, -1, 1, -1}, 1.0F},
        {"over full scale", {4, -4}, 1.0F},
        {"-40 dBFS", std::vector<float>(480, 0.01F), 1.0F / 3},
        {"-20 dBFS, negative", std::vector<float>(480, -0.1F), 2.0F / 3},
        {"-60 dBFS", std::vector<float>(480, 0.001F), 0.0F},
        {"-80 dBFS", std::vector<float>(480, 0.0001F), 0.0F},
        {"full-scale sine", sine(48000, 1, 1000, 1.0), (20 * std::log10(std::sqrt(0.5F)) + 60) / 60},
    };
    for (const auto& [name, samples, level] : cases)
        EXPECT_NEAR(audioLevel(samples.data(), samples.size()), level, 1e-4) << name;
}

TEST(OSStatusDescriptionTests, ShowsFourPrintableCharacters) {
    const std::vector<std::pair<AudioStatus, const char*>> cases{
        {0, "0(noErr)"},
        {-50, "-50"},
        {1, "1"},
        {560947818, "560947818('!obj')"},
        {0x20202020, "538976288('    ')"},
        {0x7e7e7e7e, "2122219134('~~~~')"},
        {0x1f202020, "522199072"},
        {0x2020207f, "538976383"},
        {std::numeric_limits<AudioStatus>::min(), "-2147483648"},
    };
    for (const auto& [status, text] : cases)
        EXPECT_EQ(osStatusDescription(status).toStdString(), text);
}

/// What a capture of `seconds` at `rate`, delivered in callbacks of `frames`, comes to.
struct Pipeline {
    Pipeline(double rate, const std::vector<float>& samples, size_t frames) {
        auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
        AUHALCaptureContext context(rate, sink);
        for (size_t at = 0; at < samples.size(); at += frames)
            context.handleInput(samples.data() + at, std::min(frames, samples.size() - at));
        context.flush();
        stats = context.statsSummary();
        sink.finish();
        capture = std::make_unique<AudioCapture>(std::move(stream));
        EXPECT_TRUE(capture->waitForEnd());
    }
    QString stats;
    std::unique_ptr<AudioCapture> capture;
};

TEST(AudioPipelineTests, CutsEveryRateIntoTheSameChunks) {
    for (const double rate : {8000.0, 16000.0, 22050.0, 44100.0, 48000.0, 96000.0, 192000.0})
        for (const size_t frames : {size_t(1), size_t(441), size_t(1024), size_t(16384)})
            for (const double seconds : {1.0, 1.05, 0.03}) {
                SCOPED_TRACE(testing::Message() << rate << " Hz by " << frames << " for " << seconds << " s");
                const Pipeline run(rate, sine(rate, seconds), frames);
                const auto& chunks = run.capture->chunks();
                // 22,050 Hz times 1.05 s is not a whole number of frames, nor of samples after conversion.
                const auto expected = std::llround(seconds * 16000);
                EXPECT_NEAR(static_cast<double>(run.capture->sampleCount()), static_cast<double>(expected),
                            rate == 22050.0 ? 1 : 0);
                ASSERT_EQ(chunks.size(), static_cast<size_t>((expected + 1599) / 1600));
                for (size_t i = 0; i < chunks.size(); ++i) {
                    EXPECT_EQ(chunks[i].sequence, static_cast<int64_t>(i));
                    EXPECT_EQ(chunks[i].source, AudioChunk::microphone);
                    if (i + 1 < chunks.size()) {
                        EXPECT_EQ(chunks[i].data.size(), AudioFormat::chunkByteSize);
                    }
                }
            }
}

TEST(AudioPipelineTests, KeepsTheSignalWhateverThePortions) {
    for (const double rate : {8000.0, 44100.0, 48000.0, 96000.0}) {
        const auto samples = sine(rate, 0.5);
        const Pipeline whole(rate, samples, 16384);
        const Pipeline pieces(rate, samples, 37);
        EXPECT_EQ(whole.capture->samples(), pieces.capture->samples());
        const auto expected = sine(16000, 0.5);
        double worst = 0;
        // The filter rings where the tone begins and ends.
        for (size_t i = 400; i + 400 < expected.size(); ++i)
            worst = std::max(worst, std::abs(whole.capture->samples()[i] / 32768.0 - static_cast<double>(expected[i])));
        EXPECT_LT(worst, 0.001) << rate;
    }
}

TEST(AudioPipelineTests, SaturatesInsteadOfWrapping) {
    const Pipeline run(48000, std::vector<float>(48000, 3.0F), 480);
    EXPECT_EQ(run.capture->samples()[8000], 32767);
    EXPECT_EQ(run.capture->chunks()[5].level, 1.0F);
}

TEST(AudioPipelineTests, AChunkCarriesTheLatestLevel) {
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    AUHALCaptureContext context(16000, sink);
    context.handleInput(std::vector<float>(1000, 1.0F).data(), 1000);
    context.handleInput(std::vector<float>(4000, 0.01F).data(), 4000);
    context.flush();
    sink.finish();
    AudioCapture capture(std::move(stream));
    ASSERT_TRUE(capture.waitForEnd());
    ASSERT_FALSE(capture.chunks().empty());
    EXPECT_NEAR(capture.chunks()[0].level, 1.0 / 3, 1e-4);
}

TEST(AudioPipelineTests, IgnoresImpossibleCallbacks) {
    auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
    AUHALCaptureContext context(48000, sink);
    const std::vector<float> samples(AUHALCaptureContext::maxFramesPerCallback + 1, 0.5F);
    const auto untouched = context.statsSummary();
    EXPECT_EQ(untouched, u"callbacks=0 renderedFrames=0 yieldedChunks=0 renderErrors=0 "
                         "conversionErrors=0 pendingBytes=0"_qs);
    context.handleInput(samples.data(), samples.size());
    context.handleInput(samples.data(), 0);
    EXPECT_EQ(context.statsSummary(), untouched);
    EXPECT_FALSE(context.firstSampleAt());
    context.handleInput(samples.data(), AUHALCaptureContext::maxFramesPerCallback);
    EXPECT_TRUE(context.statsSummary().startsWith(u"callbacks=1 renderedFrames=16384 yieldedChunks=3 "_qs));
    EXPECT_TRUE(context.firstSampleAt());
}

} // namespace

} // namespace quillo::test
