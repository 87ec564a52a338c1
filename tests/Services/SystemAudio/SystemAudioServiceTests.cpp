#include "Services/SystemAudio/SystemAudioService.h"
#include "Support/AudioCapture.h"
#include "Support/FakeAudioHardware.h"
#include "Support/LogLines.h"

#include <gtest/gtest.h>

namespace quillo::test {

namespace {

const AudioOutputDevice headset{u"headset"_qs, u"Headset"_qs, u"headset.monitor"_qs, OutputDeviceType::headphones};
const AudioOutputDevice other{u"other"_qs, u"Other"_qs, u"other.monitor"_qs, OutputDeviceType::bluetooth};

std::optional<SystemAudioError::Code> failedStart(SystemAudioService& service) {
    try {
        AudioCapture capture(await(service.startCapture()));
    } catch (const SystemAudioError& error) {
        return error.code();
    }
    return std::nullopt;
}

/// A second of a constant value, in callbacks of 10 ms.
void feedSecond(FakeAudioHardware& hardware, float value) {
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(hardware.feed(std::vector<float>(480, value)));
}

TEST(SystemAudioServiceTests, AFailedStartSaysWhyAndLeavesNothingOpen) {
    using Code = SystemAudioError::Code;
    FakeAudioHardware hardware;
    SystemAudioService service(hardware);
    EXPECT_EQ(failedStart(service), Code::outputDeviceNotFound);
    auto loudspeakers = headset;
    loudspeakers.type = OutputDeviceType::speakers;
    hardware.setDefaultOutput(loudspeakers);
    EXPECT_EQ(failedStart(service), Code::headphonesRequired);
    EXPECT_EQ(await(service.detectOutputDeviceType()), OutputDeviceType::speakers);
    EXPECT_TRUE(hardware.calls().isEmpty()) << "an output was opened";

    hardware.setDefaultOutput(headset);
    const std::pair<const char*, Code> cases[] = {
        {"makeInputUnit", Code::tapCreationFailed},
        {"setCurrentDevice", Code::tapCreationFailed},
        {"getDeviceFormat", Code::tapCreationFailed},
        {"initialize", Code::tapCreationFailed},
        {"start", Code::ioStartFailed},
    };
    for (const auto& [step, code] : cases) {
        SCOPED_TRACE(step);
        hardware.failures = {{QString::fromUtf8(step), 5}};
        EXPECT_EQ(failedStart(service), code);
        EXPECT_EQ(hardware.calls().last(), u"dispose"_qs);
    }
    hardware.failures.clear();
    const AudioCapture capture(await(service.startCapture()));
    EXPECT_EQ(failedStart(service), Code::alreadyCapturing);
    EXPECT_TRUE(hardware.feed(std::vector<float>(480)));
}

TEST(SystemAudioServiceTests, PauseKeepsTheMonitorAndResumeBeginsANewStream) {
    FakeAudioHardware hardware;
    hardware.setDefaultOutput(headset);
    SystemAudioService service(hardware);
    AudioCapture first(await(service.startCapture()));
    feedSecond(hardware, 0.5F);
    ASSERT_TRUE(waitUntil([&] { return first.chunks().size() >= 9; }));
    EXPECT_EQ(first.chunks()[3].source, AudioChunk::system);
    EXPECT_NEAR(first.chunks()[3].level, 0.5F, 1e-4) << "the level is the raw RMS";
    service.pauseDelivery();
    ASSERT_TRUE(first.waitForEnd());
    EXPECT_FALSE(hardware.feed({0.5F}));

    AudioCapture second(await(service.resumeDelivery()));
    feedSecond(hardware, 0.25F);
    service.stopCapture();
    ASSERT_TRUE(second.waitForEnd());
    EXPECT_EQ(second.samples().size(), 16000U) << "the stream is as long as what was recorded";
    EXPECT_EQ(second.chunks().front().sequence, 0);
    EXPECT_EQ(hardware.calls().count(u"makeInputUnit"_qs), 1);

    // What was paused and has another output now is opened again.
    AudioCapture third(await(service.resumeDelivery()));
    service.pauseDelivery();
    ASSERT_TRUE(third.waitForEnd());
    hardware.setDefaultOutput(other);
    AudioCapture fourth(await(service.resumeDelivery()));
    EXPECT_EQ(hardware.calls().count(u"setCurrentDevice other.monitor"_qs), 1);
}

TEST(SystemAudioServiceTests, FollowsTheOutputAndIsSilentOnLoudspeakers) {
    const auto peak = [](const AudioCapture& capture, size_t from) {
        int largest = 0;
        for (size_t i = from; i < capture.samples().size(); ++i)
            largest = std::max(largest, std::abs(static_cast<int>(capture.samples()[i])));
        return largest;
    };
    FakeAudioHardware hardware;
    hardware.setDefaultOutput(headset);
    SystemAudioService service(hardware);
    AudioCapture capture(await(service.startCapture()));
    feedSecond(hardware, 0.5F);
    ASSERT_TRUE(capture.waitForMore(8000));

    // The plug is pulled: the same device is now a loudspeaker.
    auto loudspeakers = headset;
    loudspeakers.type = OutputDeviceType::speakers;
    hardware.setDefaultOutput(loudspeakers);
    await(service.detectOutputDeviceType()); // goes through the service's thread
    const auto before = capture.sampleCount() + 3200;
    feedSecond(hardware, 0.5F);
    ASSERT_TRUE(waitUntil([&] { return capture.sampleCount() >= 16000 + 14400; }));
    EXPECT_EQ(peak(capture, before), 0);

    // Another device: the time between the two is part of the stream.
    hardware.setDefaultOutput(other);
    ASSERT_TRUE(waitUntil([&] { return hardware.calls().contains(u"setCurrentDevice other.monitor"_qs); }));
    await(service.detectOutputDeviceType());
    feedSecond(hardware, 0.5F);
    service.stopCapture();
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_GE(capture.sampleCount(), 48000U);
    EXPECT_GT(peak(capture, capture.sampleCount() - 8000), 16000);
    for (const auto& chunk : capture.chunks())
        EXPECT_TRUE(chunk.data.size() == AudioFormat::chunkByteSize || &chunk == &capture.chunks().back());
}

TEST(SystemAudioServiceTests, ALostOutputIsReplacedByTheNext) {
    FakeAudioHardware hardware;
    hardware.setDefaultOutput(headset);
    SystemAudioService service(hardware);
    AudioCapture capture(await(service.startCapture()));
    feedSecond(hardware, 0.5F);
    hardware.failures = {{u"setCurrentDevice"_qs, 5}};
    hardware.loseDevice(u"unplugged"_qs);
    await(service.detectOutputDeviceType());
    hardware.setDefaultOutput(std::nullopt);
    hardware.failures.clear();
    hardware.setDefaultOutput(other);
    await(service.detectOutputDeviceType());
    EXPECT_FALSE(capture.hasEnded());
    feedSecond(hardware, 0.5F);
    service.stopCapture();
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_GE(capture.sampleCount(), 32000U);
    EXPECT_EQ(capture.error(), "");
}

} // namespace

} // namespace quillo::test
