#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

namespace quillo::pcm {

/// The sum of two recordings of 16-bit mono audio at one rate, sample by sample with saturation; as long as the longer,
/// the shorter continued with silence. Half a sample at an end is left out.
QByteArray mixPCMStreams(const QByteArray& micData, const QByteArray& systemData);

/// The 44 bytes before `dataBytes` of 16 kHz mono 16-bit PCM in a WAV file (the RIFF form with a plain "fmt " chunk).
QByteArray wavHeader(uint32_t dataBytes);
constexpr qint64 wavHeaderSize = 44;

/// Makes the WAV file `wavPath` of the PCM file `micPath`, mixed with `systemPath` when that is given. Reads and writes
/// 64 KiB at a time, whatever the length. Throws FileError, and leaves no file then: when one cannot be read or
/// written, when there is no whole sample, or when the audio is beyond the 4 GiB that a WAV file can say. Any thread.
struct WavSize {
    qint64 micBytes = 0;
    qint64 systemBytes = 0;
    qint64 wavBytes = 0; ///< PCM bytes in the WAV file
};
WavSize writeWavFile(const QString& wavPath, const QString& micPath, const std::optional<QString>& systemPath = {});

} // namespace quillo::pcm
