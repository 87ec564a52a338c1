#pragma once

#include "Concurrency/Task.h"
#include "Services/Upload/TranscriptionFileClientError.h"
#include "Services/Upload/TranscriptionFileResponse.h"

#include <QString>

#include <optional>

namespace quillo {

/// The words for why a file is transcribed. Those that begin with "retranscribe" ask the server for a recognition of
/// its own rather than for a result it still has.
namespace transcriptionPurpose {
inline const QString pending = QStringLiteral("pending");           ///< its live transcription failed
inline const QString retranscribe = QStringLiteral("retranscribe"); ///< the user asked for another
inline const QString sharing = QStringLiteral("sharing");
} // namespace transcriptionPurpose

/// Transcribes audio on disk over HTTPS. Main thread. Nothing is retried but for an expired token.
///
/// Every function throws TranscriptionFileClientError, and FileError when the disk refuses the temporary copy. An empty
/// language stands for any.
class TranscriptionFileClientProtocol {
public:
    virtual ~TranscriptionFileClientProtocol() = default;

    /// `filePath` is a WAV file.
    virtual Task<TranscriptionFileResponse> transcribeFile(QString filePath, QString language, QString purpose,
                                                           std::optional<QString> clientRecordingId) = 0;
    /// The stored audio of a recording.
    virtual Task<TranscriptionFileResponse> retranscribeRecord(QString audioId, QString language, QString purpose,
                                                               std::optional<QString> clientRecordingId) = 0;
    /// The stored audio of a meeting, both channels mixed, by speakers.
    virtual Task<DiarizeResponse> diarizeRecord(QString audioId, QString language) = 0;
    /// Nothing when the server knows no such task.
    virtual Task<std::optional<DiarizationPollResponse>> pollDiarization(QString taskId) = 0;
    /// The same for a task whose id was lost, by the client's id of the recording.
    virtual Task<std::optional<DiarizationPollResponse>> recoverDiarizationByRecordingId(QString recordingId) = 0;
};

} // namespace quillo
