#include "Services/Mock/MockAudioService.h"
#include "Services/Mock/MockServices.h"

#include <cmath>
#include <numbers>

namespace quillo::mock {

namespace {

constexpr Clock::Duration chunkDuration = std::chrono::milliseconds(100);
constexpr double sampleRate = 16000;

class SimulatedMicrophone final : public MockAudioService {
public:
    explicit SimulatedMicrophone(Clock& clock) : m_clock(clock) {
        deviceName = QStringLiteral("Built-in Microphone");
        devices = {{QStringLiteral("mock.builtin"), deviceName, true},
                   {QStringLiteral("mock.headset"), QStringLiteral("Headset"), false}};
    }

    Task<AsyncStream<AudioChunk>> startCapture() override {
        auto stream = co_await MockAudioService::startCapture();
        m_spoken = 0;
        scheduleChunk();
        co_return std::move(stream);
    }

    void stopCapture() override {
        m_next.reset();
        MockAudioService::stopCapture();
    }

private:
    void scheduleChunk() {
        m_next = m_clock.callLater(chunkDuration, [this] {
            if (hum())
                scheduleChunk();
        });
    }

    /// A low hum whose loudness rises and falls like syllables; false when the consumer has dropped the stream.
    bool hum() {
        const double seconds = m_spoken++ / 10.0;
        const double loudness = 0.35 + 0.3 * std::sin(seconds * 7) * std::sin(seconds * 1.7);
        QByteArray data;
        data.reserve(AudioFormat::chunkByteSize);
        for (int i = 0; i < AudioFormat::chunkByteSize / 2; ++i) {
            const double phase = 2 * std::numbers::pi * 140 * (seconds + i / sampleRate);
            const auto sample = static_cast<int16_t>(4000 * loudness * std::sin(phase));
            data.append(static_cast<char>(sample & 0xFF)).append(static_cast<char>(sample >> 8));
        }
        return speak(static_cast<float>(loudness), std::move(data));
    }

    Clock& m_clock;
    int m_spoken = 0;
    Clock::TimerHandle m_next;
};

} // namespace

std::unique_ptr<AudioServiceProtocol> createAudioService(Clock& clock) {
    return std::make_unique<SimulatedMicrophone>(clock);
}

} // namespace quillo::mock
