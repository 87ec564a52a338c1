#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace quillo {

/// The metadata of a recording: the ".json" file with the audio's name.
///
/// Written with the keys in the order of the fields, times as ISO 8601 in UTC with milliseconds, numbers as integers.
struct PendingAudioMetadata {
    QString id;                                  ///< recording id, also the stem of the file names
    QDateTime createdAt;                         ///< when recording began
    qint64 durationMs = 0;                       ///<
    QString primaryLanguage;                     ///< dictation language code at recording time
    QString secondaryLanguage = none();          ///< second language code or "none"
    QString targetApp;                           ///< name of the application that had the focus
    qint64 targetAppPid = 0;                     ///< its process
    QString userId;                              ///< who was signed in
    int sampleRate = 16000;                      ///< Hz
    int channels = 1;                            ///<
    int bitDepth = 16;                           ///<
    int chunkCount = 0;                          ///< chunks written
    qint64 totalBytes = 0;                       ///< bytes written
    QString reason;                              ///< why the audio was kept
    std::optional<QString> systemAudioId;        ///< of a meeting: the recording id of the system's audio
    std::optional<int> systemAudioChunkCount;    ///<
    std::optional<qint64> systemAudioTotalBytes; ///<
    std::optional<QDateTime> completedAt;        ///< when it was transcribed; until then it waits
    std::optional<QString> clientRecordingId;    ///< the id that the server knows it by
    std::optional<int> emptyResultCount;         ///< how often a transcription came back empty

    /// The word for "no second language".
    static QString none() { return QStringLiteral("none"); }

    [[nodiscard]] bool isPending() const { return !completedAt; }

    [[nodiscard]] QByteArray encode() const;
    /// Throws std::runtime_error that names the key that is missing or wrong. Only "id" and "createdAt" must be there;
    /// keys that are not known are left out.
    static PendingAudioMetadata decode(const QByteArray& json);

    bool operator==(const PendingAudioMetadata&) const = default;
};

} // namespace quillo
