#include "Platform/Linux/PulseAudio/PulseAudioHardware.h"
#include "Services/Microphone/AUHALAudioService.h"
#include "Support/AudioCapture.h"
#include "Support/PulseAudioSession.h"

#include <QElapsedTimer>

#include <cmath>
#include <numbers>

namespace quillo::test {

namespace {

constexpr double hertz = 1000;

/// A tone with a whole number of periods, so that it begins and ends at zero.
std::vector<int16_t> tone(int rate, double seconds) {
    std::vector<int16_t> samples(static_cast<size_t>(rate * seconds));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] =
            static_cast<int16_t>(16000 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return samples;
}

/// The tone's position in `samples`, and how well each sample follows from the two before it: in a sine x[n+1] = 2
/// cos(w) x[n] - x[n-1], and a lost, repeated or altered sample breaks that.
struct Heard {
    explicit Heard(const std::vector<int16_t>& samples) {
        const auto isLoud = [](int16_t sample) { return std::abs(sample) > 2000; };
        const auto first = std::find_if(samples.begin(), samples.end(), isLoud);
        const auto last = std::find_if(samples.rbegin(), samples.rend(), isLoud).base();
        if (first >= last)
            return;
        length = static_cast<size_t>(last - first);
        const double factor = 2 * std::cos(2 * std::numbers::pi * hertz / AudioFormat::sampleRate);
        for (auto at = first + 200; at + 200 < last; ++at) {
            worst = std::max(worst, std::abs(at[1] - factor * at[0] + at[-1]));
            squares += static_cast<double>(*at) * *at;
            ++count;
        }
        amplitude = std::sqrt(2 * squares / count);
    }
    size_t length = 0;
    double worst = 0;
    double amplitude = 0;

private:
    double squares = 0;
    double count = 0;
};

class PulseAudioCaptureTests : public testing::Test {
protected:
    void makeService() {
        hardware = createPulseAudioHardware();
        service = std::make_unique<AUHALAudioService>(*hardware);
    }
    std::optional<QString> defaultId() {
        const auto device = await(service->getDefaultInputDevice());
        return device ? std::optional(device->id) : std::nullopt;
    }

    PulseAudioSession session;
    std::unique_ptr<AudioHardware> hardware;
    std::unique_ptr<AUHALAudioService> service;
};

TEST_F(PulseAudioCaptureTests, EveryFormatArrivesWhole) {
    const auto nameOf = [](int rate, int channels) { return u"mic-%1-%2"_qs.arg(rate).arg(channels); };
    const auto rates = {8000, 44100, 48000, 96000};
    const auto channelCounts = {1, 2, 6};
    for (const int rate : rates)
        for (const int channels : channelCounts)
            session.addMicrophone(nameOf(rate, channels), rate, channels);
    makeService();
    for (const int rate : rates)
        for (const int channels : channelCounts) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, " << channels << " channels");
            const auto name = nameOf(rate, channels);
            service->setPreferredInputDeviceID(name);
            AudioCapture capture(*service);
            ASSERT_TRUE(capture.waitForMore(1600));
            constexpr double seconds = 0.7;
            const auto speaker = session.speak(name, tone(rate, seconds));
            ASSERT_TRUE(waitUntil([&] { return !speaker->isRunning(); }));
            ASSERT_TRUE(capture.waitForMore(4800));
            service->stopCapture();
            ASSERT_TRUE(capture.waitForEnd());
            EXPECT_EQ(capture.error(), "");

            const Heard heard(capture.samples());
            EXPECT_NEAR(static_cast<double>(heard.length), seconds * 16000, 40);
            // The samples are rounded to 16 bits twice on the way.
            EXPECT_LT(heard.worst, 12);
            EXPECT_NEAR(heard.amplitude, 16000, 100);
            const auto& chunks = capture.chunks();
            for (size_t i = 0; i < chunks.size(); ++i) {
                EXPECT_EQ(chunks[i].sequence, static_cast<int64_t>(i));
                if (i + 1 < chunks.size()) {
                    EXPECT_EQ(chunks[i].data.size(), AudioFormat::chunkByteSize);
                }
            }
            const auto loudest = std::max_element(chunks.begin(), chunks.end(),
                                                  [](const auto& a, const auto& b) { return a.level < b.level; });
            // The tone's RMS is -9.2 dBFS; a callback can be shorter than a period, and its level is then up to 3 dB
            // off.
            EXPECT_NEAR(loudest->level, (60 - 9.2) / 60, 0.055);
            EXPECT_EQ(chunks.front().level, 0.0F);
        }
}

TEST_F(PulseAudioCaptureTests, TheLoudspeakersAreNoMicrophone) {
    makeService();
    // The server's own default is the monitor of its only sink here.
    EXPECT_EQ(session.pactl({u"get-default-source"_qs}), u"speakers.monitor"_qs);
    EXPECT_FALSE(defaultId());
    EXPECT_TRUE(await(service->getAvailableDevices()).empty());
    EXPECT_THROW(AudioCapture capture(*service), AudioServiceError);

    session.addMicrophone(u"desk"_qs);
    session.setDefaultSource(u"speakers.monitor"_qs);
    EXPECT_TRUE(waitUntil([&] { return defaultId() == u"desk"_qs; }));
    AudioCapture capture(*service);
    EXPECT_EQ(service->currentDeviceName(), u"The desk"_qs);
    EXPECT_TRUE(capture.waitForMore(1600));
}

TEST_F(PulseAudioCaptureTests, KnowsThatAHeadsetStartsSlowly) {
    session.pactl({u"load-module"_qs, u"module-remap-source"_qs, u"master=speakers.monitor"_qs,
                   u"source_name=headset"_qs, u"source_properties=device.bus=bluetooth"_qs});
    session.addMicrophone(u"desk"_qs);
    makeService();
    const auto slow = [&] {
        QStringList names;
        for (const auto& device : hardware->inputDevices())
            if (device.startsSlowly)
                names << device.id;
        return names;
    };
    EXPECT_TRUE(waitUntil([&] { return slow() == QStringList{u"headset"_qs}; }));
}

TEST_F(PulseAudioCaptureTests, FollowsTheDefaultUnlessToldOtherwise) {
    session.addMicrophone(u"desk"_qs);
    session.addMicrophone(u"headset"_qs, 44100, 2);
    session.setDefaultSource(u"desk"_qs);
    makeService();
    const std::pair<std::optional<QString>, const char*> cases[] = {
        {{}, "The desk"}, {u"headset"_qs, "The headset"}, {u"unplugged"_qs, "The desk"}};
    for (const auto& [preferred, name] : cases) {
        service->setPreferredInputDeviceID(preferred);
        AudioCapture capture(*service);
        EXPECT_EQ(service->currentDeviceName(), QString::fromUtf8(name));
        EXPECT_TRUE(capture.waitForMore(1600));
        EXPECT_TRUE(service->firstSampleAt());
        service->stopCapture();
        EXPECT_TRUE(capture.waitForEnd());
    }
    session.setDefaultSource(u"headset"_qs);
    EXPECT_TRUE(waitUntil([&] { return defaultId() == u"headset"_qs; }));
}

TEST_F(PulseAudioCaptureTests, ARemovedMicrophoneIsReplacedByTheNext) {
    session.addMicrophone(u"desk"_qs);
    session.addMicrophone(u"headset"_qs);
    session.setDefaultSource(u"headset"_qs);
    makeService();
    AudioCapture capture(*service);
    ASSERT_TRUE(capture.waitForMore(1600));
    session.removeMicrophone(u"headset"_qs);
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_NE(capture.error().find("The headset"), std::string::npos) << capture.error();
    // Start again at once, before the server has reported that the device is gone.
    AudioCapture next(*service);
    EXPECT_EQ(service->currentDeviceName(), u"The desk"_qs);
    EXPECT_TRUE(next.waitForMore(3200));
}

TEST_F(PulseAudioCaptureTests, OutlivesTheServer) {
    session.addMicrophone(u"desk"_qs);
    makeService();
    AudioCapture capture(*service);
    ASSERT_TRUE(capture.waitForMore(1600));
    session.kill();
    ASSERT_TRUE(capture.waitForEnd());
    EXPECT_NE(capture.error().find("The desk"), std::string::npos) << capture.error();
    EXPECT_FALSE(hardware->isAvailable());
    EXPECT_THROW(AudioCapture refused(*service), AudioServiceError);

    session.start();
    session.addMicrophone(u"new"_qs);
    AudioCapture next(*service);
    EXPECT_EQ(service->currentDeviceName(), u"The new"_qs);
    EXPECT_TRUE(next.waitForMore(1600));
}

TEST_F(PulseAudioCaptureTests, AServerThatHangsHoldsNobodyUp) {
    session.addMicrophone(u"desk"_qs);
    makeService();
    ASSERT_EQ(defaultId(), u"desk"_qs);
    session.suspend();
    QElapsedTimer elapsed;
    elapsed.start();
    auto start = service->startCapture();
    service->stopCapture();
    EXPECT_LT(elapsed.elapsed(), 200) << "the main thread waited";
    EXPECT_THROW(await(std::move(start)), AudioServiceError);
    EXPECT_LT(elapsed.elapsed(), 3000);
    session.resume();
    AudioCapture capture(*service);
    EXPECT_TRUE(capture.waitForMore(1600));
}

TEST_F(PulseAudioCaptureTests, StartsAndStopsOneHundredTimes) {
    session.addMicrophone(u"desk"_qs);
    makeService();
    for (int i = 0; i < 100; ++i) {
        AudioCapture capture(*service);
        if (i % 3 == 0) {
            ASSERT_TRUE(capture.waitForMore(1600));
        }
        if (i % 2 == 0)
            service->stopCapture();
        else
            capture.cancel();
        ASSERT_TRUE(capture.waitForEnd());
        ASSERT_EQ(capture.error(), "");
        // A capture whose consumer has gone is closed on the service's thread; this call goes through that thread.
        await(service->getAvailableDevices());
    }
    EXPECT_TRUE(waitUntil([&] {
        return session.pactl({u"list"_qs, u"source-outputs"_qs, u"short"_qs}).count(u"float32le"_qs) == 0;
    })) << "a stream was left open";
}

} // namespace

} // namespace quillo::test
