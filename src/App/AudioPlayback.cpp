#include "App/AudioPlayback.h"

#include <QFile>

#include <memory>
#include <stdexcept>

#include <pulse/error.h>
#include <pulse/simple.h>

namespace quillo {

namespace {

constexpr qint64 bytesAtOnce = 3200; // 100 ms

struct Closer {
    void operator()(pa_simple* stream) const { pa_simple_free(stream); }
};

[[noreturn]] void fail(int error) {
    throw std::runtime_error(std::string("cannot play the recording: ") + pa_strerror(error) +
                             ". Check that the sound of the desktop works");
}

} // namespace

void playRecording(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString() + ": " + file.errorString().toStdString());
    const pa_sample_spec format{PA_SAMPLE_S16LE, 16'000, 1};
    int error = 0;
    const std::unique_ptr<pa_simple, Closer> stream(
        pa_simple_new(nullptr, "Quillo", PA_STREAM_PLAYBACK, nullptr, "Recording", &format, nullptr, nullptr, &error));
    if (!stream)
        fail(error);
    while (true) {
        auto samples = file.read(bytesAtOnce);
        // A recording cut off in the middle of a sample ends with the one before.
        samples.truncate(samples.size() / 2 * 2);
        if (samples.isEmpty())
            break;
        if (pa_simple_write(stream.get(), samples.constData(), static_cast<size_t>(samples.size()), &error) != 0)
            fail(error);
    }
    if (pa_simple_drain(stream.get(), &error) != 0)
        fail(error);
}

} // namespace quillo
