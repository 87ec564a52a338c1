#include "Services/Recordings/PCMFiles.h"

#include "Core/AudioChunk.h"
#include "Core/PrivateFile.h"

#include <QtEndian>

#include <algorithm>
#include <limits>

namespace quillo::pcm {

namespace {

constexpr qint64 block = 64LL * 1024; // bytes

qint64 wholeSamples(qint64 bytes) {
    return std::max<qint64>(bytes, 0) / AudioFormat::bytesPerSample * AudioFormat::bytesPerSample;
}

int sampleAt(const QByteArray& data, qint64 offset) {
    return offset + AudioFormat::bytesPerSample <= data.size() ? qFromLittleEndian<int16_t>(data.constData() + offset)
                                                               : 0;
}

template <class Integer>
void append(QByteArray& bytes, Integer value) {
    const auto written = qToLittleEndian(value);
    bytes.append(reinterpret_cast<const char*>(&written), sizeof written);
}

/// The audio of one input and its end. The file may still grow; later samples are not part of it.
struct Input {
    explicit Input(const QString& path)
        : file(privateFile::openForReading(path)), bytes(wholeSamples(privateFile::size(path))) {}

    [[nodiscard]] QByteArray read(qint64 offset) const {
        return offset >= bytes ? QByteArray()
                               : privateFile::readAt(file.get(), offset, std::min(block, bytes - offset));
    }

    Descriptor file;
    qint64 bytes;
};

} // namespace

QByteArray mixPCMStreams(const QByteArray& micData, const QByteArray& systemData) {
    QByteArray mixed(wholeSamples(std::max(micData.size(), systemData.size())), Qt::Uninitialized);
    for (qint64 offset = 0; offset < mixed.size(); offset += AudioFormat::bytesPerSample) {
        const int sum = sampleAt(micData, offset) + sampleAt(systemData, offset);
        const auto limited =
            std::clamp<int>(sum, std::numeric_limits<int16_t>::min(), std::numeric_limits<int16_t>::max());
        qToLittleEndian(static_cast<int16_t>(limited), mixed.data() + offset);
    }
    return mixed;
}

QByteArray wavHeader(uint32_t dataBytes) {
    constexpr auto rate = static_cast<uint32_t>(AudioFormat::sampleRate);
    constexpr uint16_t frameBytes = AudioFormat::channels * AudioFormat::bytesPerSample;
    QByteArray header;
    header.reserve(wavHeaderSize);
    header += "RIFF";
    append<uint32_t>(header, dataBytes + static_cast<uint32_t>(wavHeaderSize) - 8);
    header += "WAVEfmt ";
    append<uint32_t>(header, 16); // bytes of the format that follows
    append<uint16_t>(header, 1);  // linear PCM
    append<uint16_t>(header, AudioFormat::channels);
    append<uint32_t>(header, rate);
    append<uint32_t>(header, rate * frameBytes);
    append<uint16_t>(header, frameBytes);
    append<uint16_t>(header, AudioFormat::bytesPerSample * 8);
    header += "data";
    append<uint32_t>(header, dataBytes);
    return header;
}

WavSize writeWavFile(const QString& wavPath, const QString& micPath, const std::optional<QString>& systemPath) {
    const Input mic(micPath);
    std::optional<Input> system;
    if (systemPath)
        system.emplace(*systemPath);
    WavSize size{.micBytes = mic.bytes, .systemBytes = system ? system->bytes : 0};
    size.wavBytes = std::max(size.micBytes, size.systemBytes);
    if (size.wavBytes == 0)
        throw FileError(QStringLiteral("Could not read %1: there is no audio in it").arg(micPath));
    if (size.wavBytes > std::numeric_limits<uint32_t>::max() - wavHeaderSize)
        throw FileError(QStringLiteral("Could not convert %1: a WAV file holds at most 4 GiB").arg(micPath));

    const auto wav = privateFile::create(wavPath);
    qint64 written = 0;
    const auto write = [&](const QByteArray& data) {
        if (const int error = privateFile::writeAll(wav.get(), data.constData(), data.size(), written)) {
            privateFile::remove(wavPath);
            throw FileError(QStringLiteral("Could not write %1: %2").arg(wavPath, privateFile::describe(error)));
        }
    };
    write(wavHeader(static_cast<uint32_t>(size.wavBytes)));
    for (qint64 offset = 0; offset < size.wavBytes; offset += block) {
        auto data = mic.read(offset);
        if (system)
            data = mixPCMStreams(data, system->read(offset));
        // If the file was shortened in the meantime, write silence, so that the header stays correct.
        const auto expected = std::min(block, size.wavBytes - offset);
        data.resize(data.size() < expected ? expected : data.size(), '\0');
        write(data);
    }
    return size;
}

} // namespace quillo::pcm
