#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Auth/TokenStorageProtocol.h"
#include "Services/Network/FileTransfer.h"
#include "Services/Upload/TranscriptionFileClientProtocol.h"

#include <QUrl>

#include <memory>

namespace quillo {

/// The client of the server's file transcription. Main thread; files are converted on a separate queue.
///
/// A token that is about to expire is refreshed first, and once more when the server rejects it.
class TranscriptionFileClient final : public TranscriptionFileClientProtocol {
public:
    struct Config {
        QUrl apiBaseURL;
        std::shared_ptr<TokenStorageProtocol> tokenStorage;
        FileTransfer::Prepare prepareRequest; ///< adds the authorities to trust
    };

    /// `auth` and `clock` must outlive the client.
    TranscriptionFileClient(Config config, AuthServiceProtocol& auth, Clock& clock);
    /// Running calls end with an error.
    ~TranscriptionFileClient() override;

    Task<TranscriptionFileResponse> transcribeFile(QString filePath, QString language, QString purpose,
                                                   std::optional<QString> clientRecordingId) override;
    Task<TranscriptionFileResponse> retranscribeRecord(QString audioId, QString language, QString purpose,
                                                       std::optional<QString> clientRecordingId) override;
    Task<DiarizeResponse> diarizeRecord(QString audioId, QString language) override;
    Task<std::optional<DiarizationPollResponse>> pollDiarization(QString taskId) override;
    Task<std::optional<DiarizationPollResponse>> recoverDiarizationByRecordingId(QString recordingId) override;

private:
    struct Core;
    std::shared_ptr<Core> m_core;
};

} // namespace quillo
