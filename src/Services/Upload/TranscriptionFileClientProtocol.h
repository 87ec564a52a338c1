#pragma once

#include "Concurrency/Task.h"
#include "Services/Upload/TranscriptionFileClientError.h"
#include "Services/Upload/TranscriptionFileResponse.h"

#include <QString>

#include <optional>

namespace quillo {

/// The purposes of a transcription. Those that begin with "retranscribe" request a new recognition instead of a stored
/// result.
namespace transcriptionPurpose {
inline const QString pending = QStringLiteral("pending");           ///< the live transcription failed
inline const QString retranscribe = QStringLiteral("retranscribe"); ///< the user requested a new transcription
inline const QString sharing = QStringLiteral("sharing");
} // namespace transcriptionPurpose

/// Transcribes audio on disk over HTTPS. Main thread. Retries only after an expired token.
///
/// Every function throws TranscriptionFileClientError, and FileError when the disk refuses the temporary copy. An empty
/// language means automatic detection.
class TranscriptionFileClientProtocol {
public:
    virtual ~TranscriptionFileClientProtocol() = default;

    /// `filePath` is a WAV file.
    virtual Task<TranscriptionFileResponse> transcribeFile(QString filePath, QString language, QString purpose,
                                                           std::optional<QString> clientRecordingId) = 0;
    /// The stored audio of a recording.
    virtual Task<TranscriptionFileResponse> retranscribeRecord(QString audioId, QString language, QString purpose,
                                                               std::optional<QString> clientRecordingId) = 0;
    /// The stored audio of a meeting, both channels mixed, separated by speakers.
    virtual Task<DiarizeResponse> diarizeRecord(QString audioId, QString language) = 0;
    /// Nothing when the server does not know the task.
    virtual Task<std::optional<DiarizationPollResponse>> pollDiarization(QString taskId) = 0;
    /// The same for a task whose id was lost, by the client's recording id.
    virtual Task<std::optional<DiarizationPollResponse>> recoverDiarizationByRecordingId(QString recordingId) = 0;
};

} // namespace quillo
