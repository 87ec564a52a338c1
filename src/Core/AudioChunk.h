#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <cstdint>

namespace quillo {

/// The format every recording has from capture to disk and socket: linear PCM, 16-bit signed little-endian, mono.
struct AudioFormat {
    static constexpr double sampleRate = 16000.0; ///< Hz
    static constexpr uint32_t channels = 1;
    static constexpr double chunkDuration = 0.1; ///< seconds
    static constexpr int bytesPerSample = 2;
    static constexpr int chunkByteSize = 3200;
};

/// 100 ms of 16 kHz mono little-endian signed 16-bit PCM; only the last chunk of a capture may be shorter.
struct AudioChunk {
    static inline const QString microphone = QStringLiteral("microphone");
    static inline const QString system = QStringLiteral("system");

    int64_t sequence = 0; ///< per stream, from 0
    QByteArray data;
    QDateTime timestamp; ///< when the chunk was cut, UTC
    float level = 0;     ///< of the latest device callback, 0 to 1; the raw RMS for system audio
    QString source = microphone;

    bool operator==(const AudioChunk&) const = default;
};

} // namespace quillo
