#include "Platform/Linux/PulseAudio/PulseAudioPlayback.h"

#include <QFile>

#include <memory>

#include <pulse/error.h>
#include <pulse/simple.h>

namespace quillo {

namespace {

constexpr qint64 bytesAtOnce = 3200; // 100 ms

struct Closer {
    void operator()(pa_simple* stream) const { pa_simple_free(stream); }
};

[[noreturn]] void fail(int error) {
    throw AudioPlaybackError({QStringLiteral("playback.noSound"), {QString::fromUtf8(pa_strerror(error))}});
}

class PulseAudioPlayback final : public AudioPlayback {
public:
    void play(const QString& path, std::stop_token stop) override {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            throw AudioPlaybackError({QStringLiteral("playback.unreadable"), {path, file.errorString()}});
        const pa_sample_spec format{PA_SAMPLE_S16LE, 16'000, 1};
        int error = 0;
        const std::unique_ptr<pa_simple, Closer> stream(pa_simple_new(nullptr, "Quillo", PA_STREAM_PLAYBACK, nullptr,
                                                                      "Recording", &format, nullptr, nullptr, &error));
        if (!stream)
            fail(error);
        while (!stop.stop_requested()) {
            auto samples = file.read(bytesAtOnce);
            // Ignore an incomplete last sample.
            samples.truncate(samples.size() / 2 * 2);
            if (samples.isEmpty())
                break;
            if (pa_simple_write(stream.get(), samples.constData(), static_cast<size_t>(samples.size()), &error) != 0)
                fail(error);
        }
        if (stop.stop_requested())
            pa_simple_flush(stream.get(), nullptr); // drops what the server has buffered
        else if (pa_simple_drain(stream.get(), &error) != 0)
            fail(error);
    }
};

} // namespace

std::unique_ptr<AudioPlayback> createPulseAudioPlayback() { return std::make_unique<PulseAudioPlayback>(); }

} // namespace quillo
