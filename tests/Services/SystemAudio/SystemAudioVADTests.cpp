#include "Services/SystemAudio/SystemAudioVAD.h"
#include "Support/LogLines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace quillo::test {

namespace {

/// Feeds one frame per character: '#' the threshold itself, '+' well above it, '.' silence, '?' not a number.
void feed(SystemAudioVAD& detector, std::string_view frames) {
    for (const char frame : frames)
        detector.feedLevel(frame == '#'   ? SystemAudioVAD::speechThreshold
                           : frame == '+' ? 0.25F
                           : frame == '?' ? std::numeric_limits<float>::quiet_NaN()
                                          : std::nextafter(SystemAudioVAD::speechThreshold, 0.0F));
}

TEST(SystemAudioVADTests, ThreeFramesSwitchSpeechOnAndFifteenOff) {
    struct Case {
        std::string frames;
        bool now;
        bool ever;
        int bursts;
    };
    const std::string off(15, '.');
    const Case cases[] = {
        {"++..........", false, false, 0},
        {"###", true, true, 1},
        {"++.++.++.++", false, false, 0},
        {"++?+", false, false, 0},
        {"+++" + std::string(14, '.'), true, true, 1},
        {"+++" + off, false, true, 1},
        {"+++" + off + "++", false, true, 1},
        {"+++" + off + "+++", true, true, 2},
        {"+++..............+..............", true, true, 1},
    };
    for (const auto& [frames, now, ever, bursts] : cases) {
        SCOPED_TRACE(frames);
        SystemAudioVAD detector;
        feed(detector, frames);
        EXPECT_EQ(detector.speechDetected(), now);
        EXPECT_EQ(detector.speechEverDetected(), ever);
        EXPECT_EQ(detector.speechBurstCount(), bursts);
    }
}

TEST(SystemAudioVADTests, SaysOnceThatItHeardSpeech) {
    const LogLines log;
    SystemAudioVAD detector;
    const std::string off(15, '.');
    feed(detector, "+++" + off + "+++" + off);
    EXPECT_EQ(log.count("Speech detected in system audio (peak=0.2500, avg=0.2500, bursts=1)"), 1);
    detector.reset();
    EXPECT_FALSE(detector.speechEverDetected());
    feed(detector, "++#");
    EXPECT_EQ(log.count("Speech detected in system audio"), 2);
}

} // namespace

} // namespace quillo::test
