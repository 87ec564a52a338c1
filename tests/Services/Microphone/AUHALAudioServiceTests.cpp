#include "Services/Microphone/AUHALAudioService.h"
#include "Support/AudioCapture.h"
#include "Support/FakeAudioHardware.h"

#include <latch>
#include <semaphore>

namespace quillo::test {

namespace {

/// The code and text that a start of `service` fails with.
std::pair<std::optional<AudioServiceError::Code>, std::string> failedStart(AudioServiceProtocol& service) {
    try {
        AudioCapture capture(service);
    } catch (const AudioServiceError& error) {
        return {error.code(), error.what()};
    }
    return {std::nullopt, "started"};
}

TEST(AUHALAudioServiceTests, EveryFailingStepNamesItselfAndDisposesOnce) {
    const std::pair<const char*, const char*> cases[] = {
        {"makeInputUnit", "AudioComponentInstanceNew"},  {"enableInput", "EnableIO(input)"},
        {"setCurrentDevice", "Set CurrentDevice"},       {"getDeviceFormat", "Get device stream format"},
        {"setClientFormat", "Set client stream format"}, {"setInputCallback", "SetInputCallback"},
        {"initialize", "AudioUnitInitialize"},           {"start", "AudioOutputUnitStart"},
    };
    for (const auto& [step, message] : cases) {
        SCOPED_TRACE(step);
        FakeAudioHardware hardware;
        AUHALAudioService service(hardware);
        hardware.failures[QString::fromUtf8(step)] = 560947818;
        const auto [code, text] = failedStart(service);
        EXPECT_EQ(code, AudioServiceError::Code::deviceSetupFailed);
        EXPECT_EQ(text, std::string("❌ ") + message + " failed (status=560947818('!obj'))");
        EXPECT_EQ(hardware.calls().count(u"dispose"_qs), 1);
        EXPECT_EQ(hardware.calls().last(), u"dispose"_qs);
        // A failure does not affect the next attempt.
        hardware.failures.clear();
        const AudioCapture capture(service);
        EXPECT_TRUE(hardware.feed(std::vector<float>(480)));
    }
}

TEST(AUHALAudioServiceTests, FailsWithoutAStatus) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    hardware.hasUnit = false;
    EXPECT_EQ(failedStart(service).second, "❌ AudioComponentFindNext returned nil");
    hardware.hasUnit = true;
    hardware.sampleRate = 0;
    EXPECT_EQ(failedStart(service).second, "❌ Failed to create AVAudioConverter for AUHAL pipeline");
    EXPECT_EQ(hardware.calls().count(u"dispose"_qs), 1);
    hardware.standard.reset();
    EXPECT_EQ(failedStart(service).second, "❌ Could not determine default input device");
}

TEST(AUHALAudioServiceTests, ARefusedMicrophoneIsAMatterOfPermission) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    hardware.refused = hardware.failures[u"start"_qs] = 7;
    const auto [code, text] = failedStart(service);
    EXPECT_EQ(code, AudioServiceError::Code::permissionDenied);
    EXPECT_EQ(text, "Microphone permission denied");
    EXPECT_EQ(hardware.calls().count(u"dispose"_qs), 1);
}

TEST(AUHALAudioServiceTests, AnOutputThatStaysOnIsNoObstacle) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    hardware.failures[u"disableOutput"_qs] = -50;
    AudioCapture capture(service);
    EXPECT_TRUE(hardware.feed(std::vector<float>(480)));
    service.stopCapture();
    EXPECT_TRUE(capture.waitForEnd());
    EXPECT_EQ(hardware.calls().join(u' ').toStdString(),
              "makeInputUnit enableInput disableOutput setCurrentDevice mic getDeviceFormat setClientFormat "
              "setInputCallback initialize start stop uninitialize dispose");
}

TEST(AUHALAudioServiceTests, DeliversWhatItHeardToTheLastSample) {
    // Callbacks are of 10 ms.
    for (const auto& [callbacks, chunks, lastBytes] : {std::tuple(100, 10U, 3200), {105, 11U, 1600}}) {
        FakeAudioHardware hardware;
        AUHALAudioService service(hardware);
        EXPECT_FALSE(service.firstSampleAt());
        EXPECT_TRUE(service.currentDeviceName().isEmpty());
        AudioCapture capture(service);
        EXPECT_FALSE(service.firstSampleAt());
        for (int i = 0; i < callbacks; ++i)
            ASSERT_TRUE(hardware.feed(std::vector<float>(480, 0.25F)));
        EXPECT_TRUE(service.firstSampleAt());
        EXPECT_EQ(service.currentDeviceName(), u"Microphone"_qs);
        service.stopCapture();
        service.stopCapture();
        ASSERT_TRUE(capture.waitForEnd());
        EXPECT_EQ(capture.error(), "");
        ASSERT_EQ(capture.chunks().size(), chunks);
        EXPECT_EQ(capture.chunks().back().data.size(), lastBytes);
        EXPECT_EQ(capture.chunks().back().sequence, static_cast<int64_t>(chunks) - 1);
        EXPECT_EQ(hardware.calls().count(u"dispose"_qs), 1);
    }
}

TEST(AUHALAudioServiceTests, ASecondStartLeavesTheFirstAlone) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    AudioCapture capture(service);
    hardware.feed(std::vector<float>(4800));
    const auto [code, text] = failedStart(service);
    EXPECT_EQ(code, AudioServiceError::Code::alreadyCapturing);
    EXPECT_EQ(text, "Audio capture is already in progress");
    hardware.feed(std::vector<float>(4800));
    service.stopCapture();
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_EQ(capture.sampleCount(), 3200U);
    EXPECT_EQ(hardware.calls().count(u"makeInputUnit"_qs), 1);
}

TEST(AUHALAudioServiceTests, AConsumerThatGoesStopsTheDevice) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    const auto isDisposed = [&] { return hardware.calls().last() == u"dispose"_qs; };
    { const AudioCapture capture(service); }
    EXPECT_TRUE(waitUntil(isDisposed));
    // Nor does a device stay open whose stream was never taken.
    { const auto unused = await(service.startCapture()); }
    EXPECT_TRUE(waitUntil(isDisposed));
    // A consumer that goes late does not stop the capture that has followed.
    auto stale = std::make_unique<AudioCapture>(service);
    service.stopCapture();
    const AudioCapture following(service);
    stale.reset();
    await(service.getAvailableDevices()); // whatever was queued before this has run
    EXPECT_TRUE(hardware.feed(std::vector<float>(480)));
}

TEST(AUHALAudioServiceTests, ALostDeviceFailsTheStreamByName) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    AudioCapture capture(service);
    hardware.feed(std::vector<float>(2400, 0.25F));
    hardware.loseDevice(u"Entity killed"_qs);
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_NE(capture.error().find("'Microphone' is gone (Entity killed)"), std::string::npos) << capture.error();
    EXPECT_EQ(capture.sampleCount(), 800U) << "what was heard before is delivered";
    AudioCapture next(service);
    hardware.feed(std::vector<float>(4800));
    service.stopCapture();
    ASSERT_TRUE(next.waitForEnd());
    EXPECT_EQ(next.error(), "");
    EXPECT_EQ(next.chunks().at(0).sequence, 0);
    EXPECT_EQ(hardware.calls().count(u"dispose"_qs), 2);
}

TEST(AUHALAudioServiceTests, StoppingDoesNotWaitForADeviceThatHangs) {
    FakeAudioHardware hardware;
    AUHALAudioService service(hardware);
    std::latch entered(1);
    std::binary_semaphore released(0);
    hardware.onStart = [&] {
        entered.count_down();
        released.acquire();
    };
    auto start = service.startCapture();
    entered.wait();
    service.stopCapture(); // hangs for good if it waits for the start
    released.release();
    AudioCapture capture(await(std::move(start)));
    EXPECT_TRUE(capture.waitForEnd());
    EXPECT_EQ(capture.error(), "");
    EXPECT_TRUE(waitUntil([&] { return hardware.calls().last() == u"dispose"_qs; }));
}

TEST(AUHALAudioServiceTests, ChoosesThePreferredDeviceWhenItIsThere) {
    FakeAudioHardware hardware;
    hardware.devices = {{u"mic"_qs, u"Microphone"_qs, false},
                        {u"usb"_qs, u"Headset"_qs, false},
                        {u"out.monitor"_qs, u"Monitor"_qs, true}};
    const std::pair<std::optional<QString>, const char*> cases[] = {
        {{}, "mic"}, {u"usb"_qs, "usb"}, {u"absent"_qs, "mic"}, {u"out.monitor"_qs, "out.monitor"}};
    for (const auto& [preferred, device] : cases) {
        AUHALAudioService service(hardware);
        service.setPreferredInputDeviceID(preferred);
        const AudioCapture capture(service);
        EXPECT_EQ(hardware.calls().filter(u"setCurrentDevice"_qs).last(),
                  u"setCurrentDevice "_qs + QString::fromUtf8(device));
    }
    AUHALAudioService service(hardware);
    EXPECT_EQ(await(service.getAvailableDevices()),
              (std::vector<AudioDevice>{{u"mic"_qs, u"Microphone"_qs, true}, {u"usb"_qs, u"Headset"_qs, false}}));
    EXPECT_EQ(await(service.getDefaultInputDevice())->id, u"mic"_qs);
    hardware.standard.reset();
    EXPECT_FALSE(await(service.getDefaultInputDevice()));
}

} // namespace

} // namespace quillo::test
