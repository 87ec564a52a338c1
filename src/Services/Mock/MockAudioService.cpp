#include "Services/Mock/MockServices.h"

#include <QDateTime>

#include <cmath>
#include <numbers>

namespace quillo::mock {

namespace {

constexpr Clock::Duration chunkDuration = std::chrono::milliseconds(100);
constexpr double sampleRate = 16000;

class AudioService final : public AudioServiceProtocol {
public:
    explicit AudioService(Clock& clock) : m_clock(clock) {}

    Task<AsyncStream<AudioChunk>> startCapture() override {
        if (m_sink)
            throw AudioServiceError(AudioServiceError::Code::alreadyCapturing);
        auto [stream, sink] = AsyncStream<AudioChunk>::make(EventExecutor::main());
        m_sink = sink;
        m_sequence = 0;
        m_firstSampleAt.reset();
        scheduleChunk();
        co_return std::move(stream);
    }

    void stopCapture() override {
        m_next.reset();
        if (m_sink)
            std::exchange(m_sink, {}).finish();
    }

    Task<std::vector<AudioDevice>> getAvailableDevices() override {
        co_return {{QStringLiteral("mock.builtin"), QStringLiteral("Built-in Microphone"), true},
                   {QStringLiteral("mock.headset"), QStringLiteral("Headset"), false}};
    }
    Task<std::optional<AudioDevice>> getDefaultInputDevice() override {
        co_return AudioDevice{QStringLiteral("mock.builtin"), QStringLiteral("Built-in Microphone"), true};
    }
    void setPreferredInputDeviceID(std::optional<QString> /*id*/) override {}
    [[nodiscard]] QString currentDeviceName() const override { return QStringLiteral("Built-in Microphone"); }
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> firstSampleAt() const override {
        return m_firstSampleAt;
    }

private:
    void scheduleChunk() {
        m_next = m_clock.callLater(chunkDuration, [this] {
            if (!m_firstSampleAt)
                m_firstSampleAt = std::chrono::steady_clock::now();
            if (m_sink.yield(makeChunk()))
                scheduleChunk();
            else
                m_sink = {}; // the consumer has dropped the stream
        });
    }

    /// A low hum whose loudness rises and falls like syllables.
    AudioChunk makeChunk() {
        const double seconds = static_cast<double>(m_sequence) / 10;
        const double loudness = 0.35 + 0.3 * std::sin(seconds * 7) * std::sin(seconds * 1.7);
        AudioChunk chunk;
        chunk.sequence = m_sequence++;
        chunk.timestamp = QDateTime::currentDateTimeUtc();
        chunk.level = static_cast<float>(loudness);
        chunk.data.reserve(AudioFormat::chunkByteSize);
        for (int i = 0; i < AudioFormat::chunkByteSize / 2; ++i) {
            const double phase = 2 * std::numbers::pi * 140 * (seconds + i / sampleRate);
            const auto sample = static_cast<int16_t>(4000 * loudness * std::sin(phase));
            chunk.data.append(static_cast<char>(sample & 0xFF)).append(static_cast<char>(sample >> 8));
        }
        return chunk;
    }

    Clock& m_clock;
    AsyncStream<AudioChunk>::Sink m_sink;
    int64_t m_sequence = 0;
    std::optional<std::chrono::steady_clock::time_point> m_firstSampleAt;
    Clock::TimerHandle m_next;
};

} // namespace

std::unique_ptr<AudioServiceProtocol> createAudioService(Clock& clock) { return std::make_unique<AudioService>(clock); }

} // namespace quillo::mock
