#include "Platform/Linux/Sounds/PulseAudioSounds.h"

#include "Concurrency/Executor.h"
#include "Core/Log.h"
#include "Platform/Linux/Sounds/SampleSounds.h"

#include <pulse/error.h>
#include <pulse/simple.h>

#include <atomic>
#include <map>

namespace quillo {

namespace {

void playSamples(const std::vector<float>& samples, double volume) {
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, soundSampleRate, 1};
    int error = 0;
    // No communication role: it would make the server lower the volume of other applications.
    auto* const stream =
        pa_simple_new(nullptr, "Quillo", PA_STREAM_PLAYBACK, nullptr, "Sound", &format, nullptr, nullptr, &error);
    if (!stream) {
        appLog(QStringLiteral("No sound was played: %1").arg(QString::fromUtf8(pa_strerror(error))), LogLevel::debug,
               QStringLiteral("Sounds"));
        return;
    }
    auto scaled = samples;
    for (auto& sample : scaled)
        sample *= static_cast<float>(volume);
    pa_simple_write(stream, scaled.data(), scaled.size() * sizeof(float), &error);
    pa_simple_drain(stream, &error);
    pa_simple_free(stream);
}

class PulseAudioSounds final : public Sounds {
public:
    PulseAudioSounds() = default;
    ~PulseAudioSounds() override {
        // A hung sound server must not delay the exit: the thread is detached and ends with the process.
        if (*m_isPlaying)
            static_cast<void>(m_executor.release());
    }
    PulseAudioSounds(const PulseAudioSounds&) = delete;
    PulseAudioSounds& operator=(const PulseAudioSounds&) = delete;

    bool play(const QString& name, double volume) override {
        auto& samples = m_samples[name];
        if (!samples) {
            auto made = synthesizeSound(name);
            if (made.empty())
                return false;
            samples = std::make_shared<const std::vector<float>>(std::move(made));
        }
        if (!m_executor)
            m_executor = std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.sounds"));
        // Play one sound at a time: sounds queued up behind a slow server would be heard too late.
        if (m_isPlaying->exchange(true))
            return true;
        m_executor->post([samples = samples, volume, isPlaying = m_isPlaying] {
            playSamples(*samples, volume);
            *isPlaying = false;
        });
        return true;
    }

private:
    std::map<QString, std::shared_ptr<const std::vector<float>>> m_samples;
    std::shared_ptr<std::atomic<bool>> m_isPlaying = std::make_shared<std::atomic<bool>>(false);
    std::unique_ptr<SerialExecutor> m_executor;
};

} // namespace

std::unique_ptr<Sounds> createSounds() { return std::make_unique<PulseAudioSounds>(); }

} // namespace quillo
