#include "Services/AudioService.h"
#include "Support/AudioCapture.h"
#include "Support/PulseAudioSession.h"

namespace quillo::test {

namespace {

/// The engine keeps one connection to the sound server for the life of the process, so there is one session for all.
TEST(AudioServiceTests, KeepsTheContractOnAnAudioEngine) {
    PulseAudioSession session;
    session.addMicrophone(QStringLiteral("desk"));
    session.addMicrophone(QStringLiteral("headset"), 44100, 2);
    session.setDefaultSource(QStringLiteral("desk"));
    AudioService service;
    EXPECT_TRUE(waitUntil([&] { return await(service.getAvailableDevices()).size() == 2; }));
    EXPECT_EQ(await(service.getDefaultInputDevice()),
              (AudioDevice{QStringLiteral("desk"), QStringLiteral("The desk"), true}));
    service.stopCapture(); // nothing to stop

    for (const auto& [preferred, name] : {std::pair{std::optional<QString>(), "The desk"},
                                          std::pair{std::optional(QStringLiteral("headset")), "The headset"},
                                          std::pair{std::optional(QStringLiteral("absent")), "The desk"}}) {
        SCOPED_TRACE(name);
        service.setPreferredInputDeviceID(preferred);
        AudioCapture capture(service);
        EXPECT_EQ(service.currentDeviceName(), QString::fromUtf8(name));
        ASSERT_TRUE(capture.waitForMore(1600));
        EXPECT_TRUE(service.firstSampleAt());
        EXPECT_THROW(AudioCapture second(service), AudioServiceError);
        const auto before = capture.sampleCount();
        const auto id = preferred == QStringLiteral("headset") ? QStringLiteral("headset") : QStringLiteral("desk");
        const auto rate = id == QStringLiteral("headset") ? 44100U : 48000U;
        // A quarter of a second at a constant level: its length tells whether anything was lost or repeated.
        const auto speaker = session.speak(id, std::vector<int16_t>(rate / 4, 8000));
        ASSERT_TRUE(waitUntil([&] { return !speaker->isRunning(); }));
        ASSERT_TRUE(capture.waitForMore(4800));
        service.stopCapture();
        ASSERT_TRUE(capture.waitForEnd());
        EXPECT_EQ(capture.error(), "");
        EXPECT_GT(capture.sampleCount(), before);
        const auto loud = std::count_if(capture.samples().begin(), capture.samples().end(),
                                        [](int16_t sample) { return sample > 4000; });
        EXPECT_NEAR(static_cast<double>(loud), 4000, 4);
        for (size_t i = 0; i < capture.chunks().size(); ++i) {
            EXPECT_EQ(capture.chunks()[i].sequence, static_cast<int64_t>(i));
            if (i + 1 < capture.chunks().size()) {
                EXPECT_EQ(capture.chunks()[i].data.size(), AudioFormat::chunkByteSize);
            }
        }
    }

    // A consumer that goes closes the device.
    { const AudioCapture dropped(service); }
    EXPECT_TRUE(waitUntil([&] {
        return session.pactl({QStringLiteral("list"), QStringLiteral("source-outputs"), QStringLiteral("short")})
                   .count(QStringLiteral("float32le")) == 0;
    }));

    service.setPreferredInputDeviceID(QStringLiteral("headset"));
    AudioCapture unplugged(service);
    ASSERT_TRUE(unplugged.waitForMore(1600));
    session.removeMicrophone(QStringLiteral("headset"));
    ASSERT_TRUE(unplugged.waitForEnd());
    EXPECT_NE(unplugged.error().find("The headset"), std::string::npos) << unplugged.error();
    AudioCapture next(service);
    EXPECT_EQ(service.currentDeviceName(), QStringLiteral("The desk"));
    EXPECT_TRUE(next.waitForMore(1600));
}

} // namespace

} // namespace quillo::test
