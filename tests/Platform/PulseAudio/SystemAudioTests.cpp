#include "Platform/Linux/PulseAudio/OutputType.h"
#include "Platform/Linux/PulseAudio/PulseAudioHardware.h"
#include "Services/SystemAudio/SystemAudioService.h"
#include "Support/AudioCapture.h"
#include "Support/PulseAudioSession.h"

#include <pulse/def.h>

#include <QTemporaryFile>

#include <cmath>

namespace quillo::test {

namespace {

TEST(OutputTypeTests, ThePortDecidesBeforeTheDevice) {
    using enum OutputDeviceType;
    const std::pair<OutputProperties, OutputDeviceType> cases[] = {
        // A notebook's card, with and without a plug in its jack.
        {{PA_DEVICE_PORT_TYPE_SPEAKER, "analog-output-speaker", "internal", "pci"}, speakers},
        {{PA_DEVICE_PORT_TYPE_HEADPHONES, "analog-output-headphones", "internal", "pci"}, headphones},
        {{0, "analog-output-headphones-2", "internal", "pci"}, headphones},
        {{PA_DEVICE_PORT_TYPE_ANALOG, "analog-output", "internal", "pci"}, speakers},
        {{PA_DEVICE_PORT_TYPE_ANALOG, "analog-output", nullptr, "pci"}, unknown},
        {{PA_DEVICE_PORT_TYPE_LINE, "analog-output-lineout", nullptr, "pci"}, speakers},
        {{PA_DEVICE_PORT_TYPE_HDMI, "hdmi-output-0", nullptr, "pci"}, speakers},
        {{0, "iec958-stereo-output", nullptr, "usb"}, speakers},
        // By cable or a radio of its own.
        {{PA_DEVICE_PORT_TYPE_ANALOG, "analog-output", "headset", "usb"}, headphones},
        {{0, nullptr, "headphone", "usb"}, headphones},
        {{0, nullptr, "webcam", "usb"}, unknown},
        // Over Bluetooth: what is not known to stand in the room is worn.
        {{PA_DEVICE_PORT_TYPE_HEADSET, "headset-output", "headset", "bluetooth"}, bluetooth},
        {{PA_DEVICE_PORT_TYPE_BLUETOOTH, "unknown-output", nullptr, "bluetooth"}, bluetooth},
        {{PA_DEVICE_PORT_TYPE_HANDSFREE, "handsfree-output", "hands-free", "bluetooth"}, bluetooth},
        {{PA_DEVICE_PORT_TYPE_SPEAKER, "speaker-output", "speaker", "bluetooth"}, speakers},
        {{PA_DEVICE_PORT_TYPE_PORTABLE, "portable-output", "portable", "bluetooth"}, speakers},
        {{PA_DEVICE_PORT_TYPE_CAR, "car-output", "car", "bluetooth"}, speakers},
        {{}, unknown},
    };
    for (const auto& [properties, type] : cases)
        EXPECT_EQ(outputType(properties), type) << (properties.port ? properties.port : "-");
}

class SystemAudioOnPulseAudioTests : public testing::Test {
protected:
    void addOutput(const QString& name, const QString& formFactor, int rate) {
        session.pactl({u"load-module"_qs, u"module-null-sink"_qs, u"sink_name="_qs + name, u"rate=%1"_qs.arg(rate),
                       u"channels=2"_qs, u"sink_properties=device.form_factor=%1"_qs.arg(formFactor)});
    }
    void setDefault(const QString& name) { session.pactl({u"set-default-sink"_qs, name}); }
    /// Plays half a second of a square wave, whose level a resampler hardly changes.
    void play(const QString& output) {
        QTemporaryFile file;
        ASSERT_TRUE(file.open());
        std::vector<int16_t> samples(24000);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = i / 60 % 2 == 0 ? 12000 : -12000;
        file.write(reinterpret_cast<const char*>(samples.data()), static_cast<qint64>(samples.size() * 2));
        file.flush();
        ChildProcess player(u"pacat"_qs, {u"--device="_qs + output, u"--format=s16le"_qs, u"--rate=48000"_qs,
                                          u"--channels=1"_qs, u"--raw"_qs, file.fileName()});
        ASSERT_TRUE(waitUntil([&] { return !player.isRunning(); }));
    }
    static size_t loudSamples(const AudioCapture& capture) {
        return static_cast<size_t>(std::count_if(capture.samples().begin(), capture.samples().end(),
                                                 [](int16_t sample) { return std::abs(sample) > 6000; }));
    }

    PulseAudioSession session;
};

TEST_F(SystemAudioOnPulseAudioTests, RecordsWhatIsPlayedAndFollowsTheDefault) {
    addOutput(u"headset"_qs, u"headset"_qs, 48000);
    addOutput(u"second"_qs, u"headphone"_qs, 44100);
    addOutput(u"room"_qs, u"speaker"_qs, 48000);
    setDefault(u"headset"_qs);
    const auto hardware = createPulseAudioHardware();
    SystemAudioService service(*hardware);
    const auto isDefault = [&](OutputDeviceType type) {
        return waitUntil([&] { return await(service.detectOutputDeviceType()) == type; });
    };
    ASSERT_TRUE(isDefault(OutputDeviceType::headphones));
    AudioCapture capture(await(service.startCapture()));
    ASSERT_TRUE(capture.waitForMore(1600));
    play(u"headset"_qs);
    ASSERT_TRUE(capture.waitForMore(4800));
    EXPECT_NEAR(static_cast<double>(loudSamples(capture)), 8000, 600);

    setDefault(u"room"_qs);
    ASSERT_TRUE(isDefault(OutputDeviceType::speakers));
    play(u"room"_qs);
    setDefault(u"second"_qs);
    ASSERT_TRUE(isDefault(OutputDeviceType::headphones));
    ASSERT_TRUE(capture.waitForMore(1600));
    EXPECT_NEAR(static_cast<double>(loudSamples(capture)), 8000, 600) << "the loudspeakers were recorded";
    play(u"second"_qs);
    ASSERT_TRUE(capture.waitForMore(4800));
    EXPECT_NEAR(static_cast<double>(loudSamples(capture)), 16000, 1200);

    // The stream has kept the time over both changes.
    const auto elapsed = std::chrono::steady_clock::now() - *service.firstSampleAt();
    EXPECT_NEAR(static_cast<double>(capture.sampleCount()), std::chrono::duration<double>(elapsed).count() * 16000,
                5000);
    service.pauseDelivery();
    ASSERT_TRUE(capture.waitForEnd());
    play(u"second"_qs);
    AudioCapture resumed(await(service.resumeDelivery()));
    ASSERT_TRUE(resumed.waitForMore(4800));
    EXPECT_EQ(loudSamples(resumed), 0U) << "what was played during the pause was recorded";
    play(u"second"_qs);
    ASSERT_TRUE(resumed.waitForMore(4800));
    EXPECT_NEAR(static_cast<double>(loudSamples(resumed)), 8000, 600);
}

TEST_F(SystemAudioOnPulseAudioTests, OutlivesTheOutputAndTheServer) {
    addOutput(u"headset"_qs, u"headset"_qs, 48000);
    setDefault(u"headset"_qs);
    const auto hardware = createPulseAudioHardware();
    SystemAudioService service(*hardware);
    ASSERT_TRUE(waitUntil([&] { return await(service.detectOutputDeviceType()) == OutputDeviceType::headphones; }));
    AudioCapture capture(await(service.startCapture()));
    ASSERT_TRUE(capture.waitForMore(1600));
    session.kill();
    session.start();
    addOutput(u"headset"_qs, u"headset"_qs, 48000);
    setDefault(u"headset"_qs);
    ASSERT_TRUE(capture.waitForMore(1600));
    play(u"headset"_qs);
    ASSERT_TRUE(capture.waitForMore(4800));
    EXPECT_GT(loudSamples(capture), 7000U);
    EXPECT_FALSE(capture.hasEnded());
}

} // namespace

} // namespace quillo::test
