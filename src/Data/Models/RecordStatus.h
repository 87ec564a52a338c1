#pragma once

#include <QString>

namespace quillo::RecordStatus {

/// The words that the store keeps in `TranscriptionRecord::status`. They stay: see docs/compatibility.md.
inline const QString recording = QStringLiteral("recording");   ///< only while a session runs
inline const QString processing = QStringLiteral("processing"); ///< audio finished, waiting for the final text
inline const QString diarizing = QStringLiteral("diarizing");   ///< a meeting, waiting for its speakers
inline const QString completed = QStringLiteral("completed");
inline const QString pendingTranscription = QStringLiteral("pending_transcription"); ///< its audio waits for a retry
inline const QString unrecognized = QStringLiteral("unrecognized");                  ///< no words were found in it
inline const QString transcriptionFailed = QStringLiteral("transcription_failed");   ///< given up

} // namespace quillo::RecordStatus
