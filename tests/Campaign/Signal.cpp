#include "Signal.h"

#include <QFile>

#include <bit>
#include <limits>
#include <random>
#include <stdexcept>

namespace quillo::test {

static_assert(std::endian::native == std::endian::little);

Samples noise(uint64_t seed, size_t count) {
    constexpr int amplitude = 8000;
    // Do not use std::uniform_int_distribution: its results differ between libraries.
    std::mt19937_64 generator(seed);
    Samples samples(count);
    for (auto& sample : samples)
        sample = static_cast<int16_t>(static_cast<int>((generator() >> 32) % (2 * amplitude + 1)) - amplitude);
    return samples;
}

Samples readSamples(const QString& file) { return readSamples(file, 0, std::numeric_limits<int64_t>::max() / 4); }

Samples readSamples(const QString& file, int64_t first, int64_t count) {
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly) || !source.seek(first * 2))
        throw std::runtime_error(u"%1 cannot be read: %2"_qs.arg(file, source.errorString()).toStdString());
    const auto bytes = source.read(std::min<qint64>(count * 2, source.size()));
    Samples samples(static_cast<size_t>(bytes.size() / 2));
    std::copy_n(bytes.constData(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
    return samples;
}

void writeSamples(const QString& file, SampleView samples) {
    QFile target(file);
    const auto bytes = static_cast<qint64>(samples.size_bytes());
    if (!target.open(QIODevice::WriteOnly) ||
        target.write(reinterpret_cast<const char*>(samples.data()), bytes) != bytes || !target.flush())
        throw std::runtime_error(u"%1 cannot be written: %2"_qs.arg(file, target.errorString()).toStdString());
}

} // namespace quillo::test
