#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

namespace quillo::pcm {

/// The sum of two 16-bit mono recordings with the same rate, sample by sample with saturation. The shorter one is
/// extended with silence; an incomplete last sample is ignored.
QByteArray mixPCMStreams(const QByteArray& micData, const QByteArray& systemData);

/// The 44-byte header for `dataBytes` of 16 kHz mono 16-bit PCM in a WAV file (RIFF with a plain "fmt " chunk).
QByteArray wavHeader(uint32_t dataBytes);
constexpr qint64 wavHeaderSize = 44;

/// Creates the WAV file `wavPath` from the PCM file `micPath`, mixed with `systemPath` if given. Works in blocks of 64
/// KiB. Throws FileError and leaves no file when a file cannot be read or written, when there is no whole sample, or
/// when the audio exceeds the 4 GiB limit of WAV files. Any thread.
struct WavSize {
    qint64 micBytes = 0;
    qint64 systemBytes = 0;
    qint64 wavBytes = 0; ///< PCM bytes in the WAV file
};
WavSize writeWavFile(const QString& wavPath, const QString& micPath, const std::optional<QString>& systemPath = {});

} // namespace quillo::pcm
