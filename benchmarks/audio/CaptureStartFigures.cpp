// The time from the call that starts a capture to the first samples from the device, with a real sound server. Speech
// in this time is lost.

#include "Core/LoggingService.h"
#include "Platform/Linux/PulseAudio/PulseAudioHardware.h"
#include "Services/Microphone/AUHALAudioService.h"
#include "Support/AudioCapture.h"
#include "Support/PulseAudioSession.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

namespace {

using namespace quillo;
using namespace quillo::test;

constexpr size_t captures = 100;

void measure() {
    PulseAudioSession session;
    session.addMicrophone(QStringLiteral("desk"));
    const auto hardware = createPulseAudioHardware();
    AUHALAudioService service(*hardware);
    if (!await(service.getDefaultInputDevice()))
        throw std::runtime_error("the sound server has no microphone");
    // The null sink behind the microphone may still be in its first sleep.
    {
        AudioCapture first(service);
        if (!first.waitForMore(4800))
            throw std::runtime_error("the microphone delivers nothing");
    }
    std::vector<double> milliseconds;
    while (milliseconds.size() < captures) {
        const auto began = std::chrono::steady_clock::now();
        AudioCapture capture(service);
        if (!waitUntil([&] { return service.firstSampleAt().has_value(); }))
            throw std::runtime_error("the microphone delivers nothing");
        milliseconds.push_back(std::chrono::duration<double, std::milli>(*service.firstSampleAt() - began).count());
        service.stopCapture();
        capture.waitForEnd();
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf(
        "start of capture to first sample, %zu captures: median %.1f ms, 95th percentile %.1f ms, worst %.1f ms\n",
        captures, milliseconds[captures / 2], milliseconds[captures * 95 / 100 - 1], milliseconds.back());
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    LoggingService::shared().setConsoleLevel(std::nullopt);
    try {
        measure();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
