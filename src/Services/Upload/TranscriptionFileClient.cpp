#include "Services/Upload/TranscriptionFileClient.h"

#include "Concurrency/Perform.h"
#include "Core/Log.h"
#include "Services/Recordings/PCMFiles.h"
#include "Services/Recordings/PendingAudioFiles.h"

#include <QFileInfo>
#include <QUuid>

namespace quillo {

namespace {

using namespace std::chrono_literals;
using Error = TranscriptionFileClientError;

constexpr std::chrono::milliseconds transcriptionTimeout = 300s;
constexpr std::chrono::milliseconds pollTimeout = 30s;
/// A token that expires within this time is refreshed first, so that it stays valid during a long upload.
constexpr int expiryMarginSeconds = 60;
constexpr int statusUnauthorized = 401;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[TranscriptionFileClient] ") + message, level, QStringLiteral("TranscriptionFileClient"));
}

/// A temporary file, removed by the destructor.
class TemporaryFile {
public:
    explicit TemporaryFile(QString path) : m_path(std::move(path)) {}
    ~TemporaryFile() { privateFile::remove(m_path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    [[nodiscard]] const QString& path() const { return m_path; }

private:
    QString m_path;
};

/// A separate file for each request, in a folder that only the user can read and that the next start cleans up.
QString temporaryPath(const QString& audioId) {
    const auto unique = QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
    return QStringLiteral("%1/%2-%3_retranscribe.wav").arg(pendingAudioFiles::directory(), audioId, unique);
}

FileUpload wavUpload(const QString& filePath, const QString& language) {
    const auto name = QFileInfo(filePath).fileName();
    return {.filePath = filePath,
            .fileName = name.isEmpty() ? QStringLiteral("audio.wav") : name,
            .fields = {{"language", language.isEmpty() ? QStringLiteral("auto") : language}}};
}

void requireReadable(const QString& filePath) {
    const QFileInfo file(filePath);
    if (!file.exists())
        throw Error(Error::Kind::audioFileMissing);
    if (!file.isFile() || !file.isReadable())
        throw Error(Error::Kind::audioFileUnreadable);
}

void requireAudio(const QString& audioId) {
    if (!pendingAudioFiles::audioFilesExist(audioId))
        throw Error(Error::Kind::audioFileMissing);
    try {
        privateFile::openForReading(pendingAudioFiles::audioPath(audioId));
    } catch (const FileError& error) {
        log(QStringLiteral("⚠️ %1").arg(error.message()), LogLevel::warn);
        throw Error(Error::Kind::audioFileUnreadable);
    }
}

std::optional<QString> systemAudioOf(const QString& audioId) {
    try {
        const auto id = pendingAudioFiles::readMetadata(audioId).systemAudioId;
        return id && pendingAudioFiles::audioFilesExist(*id) ? id : std::nullopt;
    } catch (const FileError&) {
        return std::nullopt;
    }
}

Error errorOf(const FileTransfer::Answer& answer) {
    switch (answer.outcome) {
    case FileTransfer::Answer::Outcome::unreachable:
        return Error::unreachable(answer.failure);
    case FileTransfer::Answer::Outcome::unusable:
        return Error(Error::Kind::invalidResponse);
    case FileTransfer::Answer::Outcome::answered:
        break;
    }
    if (answer.status >= 300 && answer.status < 400)
        return Error::serverError(
            answer.status,
            QStringLiteral("The server sent the request on to %1, which is not followed so that "
                           "the sign-in stays with the server. Check the server address.")
                .arg(answer.redirectTo.isEmpty() ? QStringLiteral("another address") : answer.redirectTo));
    return Error::serverError(answer.status, transcriptionFileCoding::errorMessage(answer.body),
                              transcriptionFileCoding::errorCode(answer.body), answer.retryAfter);
}

template <class Decode>
auto decodeAnswer(const FileTransfer::Answer& answer, Decode decode) {
    if (answer.outcome != FileTransfer::Answer::Outcome::answered || answer.status != 200)
        throw errorOf(answer);
    try {
        return decode(answer.body);
    } catch (const std::runtime_error& error) {
        log(QStringLiteral("❌ The server's answer of %1 bytes cannot be read: %2")
                .arg(answer.body.size())
                .arg(QString::fromUtf8(error.what())),
            LogLevel::error);
        throw Error(Error::Kind::decodingFailed);
    }
}

} // namespace

struct TranscriptionFileClient::Core {
    Config config;
    AuthServiceProtocol& auth;
    Clock& clock;
    std::unique_ptr<FileTransfer> transfer; ///< null once the client is destroyed
    std::unique_ptr<SerialExecutor> files;  ///< made when it is first needed

    using Self = std::shared_ptr<Core>;

    [[nodiscard]] QUrl url(const QString& path) const {
        auto url = config.apiBaseURL;
        url.setPath(url.path() + path);
        if (!url.isValid() || url.host().isEmpty())
            throw Error(Error::Kind::invalidURL);
        return url;
    }

    [[nodiscard]] QString token() const {
        const auto token = config.tokenStorage->accessToken();
        if (!token || token->isEmpty())
            throw Error(Error::Kind::notAuthenticated);
        return *token;
    }

    static Task<> refresh(Self self) {
        bool isRejected = false;
        QString reason;
        try {
            co_await self->auth.refreshAccessToken();
            co_return;
        } catch (const AuthError& error) {
            isRejected = error.isAuthenticationError();
            reason = QString::fromUtf8(error.what());
        }
        const auto user = self->auth.currentUser();
        if (isRejected && user && user->isAnonymous) {
            // An anonymous session cannot be signed in to again; a new one is just as good.
            try {
                co_await self->auth.createAnonymousSession();
                co_return;
            } catch (const AuthError& error) {
                isRejected = error.isAuthenticationError();
                reason = QString::fromUtf8(error.what());
            }
        }
        log(QStringLiteral("⚠️ The access token could not be refreshed: %1").arg(reason), LogLevel::warn);
        throw isRejected ? Error(Error::Kind::notAuthenticated) : Error::unreachable(reason);
    }

    static Task<FileTransfer::Answer> send(Self self, FileTransfer::Request request) {
        // The stored session may have yet to be found.
        if (!self->config.tokenStorage->accessToken())
            co_await self->auth.checkExistingSession();
        request.accessToken = self->token();
        bool wasRefreshed = false;
        const auto expiresAt = self->config.tokenStorage->accessTokenExpiresAt();
        if (expiresAt && self->clock.wallTime().secsTo(*expiresAt) <= expiryMarginSeconds) {
            wasRefreshed = true;
            co_await refresh(self);
            request.accessToken = self->token();
        }
        FileTransfer::Answer answer;
        if (self->transfer)
            answer = co_await self->transfer->send(request);
        if (answer.status == statusUnauthorized && !wasRefreshed) {
            co_await refresh(self);
            request.accessToken = self->token();
            if (self->transfer)
                answer = co_await self->transfer->send(request);
        }
        co_return answer;
    }

    static Task<TranscriptionFileResponse> transcribe(Self self, QString filePath, QString language, QString purpose,
                                                      std::optional<QString> clientRecordingId) {
        requireReadable(filePath);
        FileTransfer::Request request;
        request.url = self->url(QStringLiteral("/transcription/file"));
        request.timeout = transcriptionTimeout;
        request.upload = wavUpload(filePath, language);
        request.upload->fields.emplace_back("purpose", purpose);
        if (clientRecordingId)
            request.upload->fields.emplace_back("client_recording_id", *clientRecordingId);
        const auto answer = co_await send(self, std::move(request));
        co_return decodeAnswer(answer, transcriptionFileCoding::decodeTranscription);
    }

    /// Creates the WAV file of a recording, off the main thread.
    static Task<pcm::WavSize> convert(Self self, QString wavPath, QString audioId, std::optional<QString> systemId) {
        if (!self->files)
            self->files = std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.transcription-file"));
        co_return co_await perform(*self->files, EventExecutor::main(), [wavPath, audioId, systemId] {
            return pcm::writeWavFile(wavPath, pendingAudioFiles::audioPath(audioId),
                                     systemId ? std::optional(pendingAudioFiles::audioPath(*systemId)) : std::nullopt);
        });
    }

    static Task<TranscriptionFileResponse> retranscribe(Self self, QString audioId, QString language, QString purpose,
                                                        std::optional<QString> clientRecordingId) {
        requireAudio(audioId);
        (void)self->token(); // fail before the conversion
        const TemporaryFile wav(temporaryPath(audioId));
        co_await convert(self, wav.path(), audioId, {});
        co_return co_await transcribe(self, wav.path(), language, purpose, clientRecordingId);
    }

    static Task<DiarizeResponse> diarize(Self self, QString audioId, QString language) {
        requireAudio(audioId);
        (void)self->token();
        const auto systemId = systemAudioOf(audioId);
        const TemporaryFile wav(temporaryPath(audioId));
        const auto size = co_await convert(self, wav.path(), audioId, systemId);
        if (systemId)
            log(QStringLiteral("🔬 Diarize: mixed mic(%1 bytes) + system(%2 bytes, sysAudioId=%3)")
                    .arg(size.micBytes)
                    .arg(size.systemBytes)
                    .arg(*systemId));
        else
            log(QStringLiteral("🔬 Diarize: mic-only %1 bytes (sysAudioId=nil)").arg(size.micBytes));
        log(QStringLiteral("🔬 Diarize: WAV pcm=%1 bytes, sampleRate=16000").arg(size.wavBytes));
        FileTransfer::Request request;
        request.url = self->url(QStringLiteral("/transcription/diarize"));
        request.timeout = transcriptionTimeout;
        request.upload = wavUpload(wav.path(), language);
        const auto answer = co_await send(self, std::move(request));
        co_return decodeAnswer(answer, transcriptionFileCoding::decodeDiarization);
    }

    static Task<std::optional<DiarizationPollResponse>> poll(Self self, QString id, QString path) {
        // The id may come from a server or a file; it must not change the path of the request.
        if (!pendingAudioFiles::isRecordingId(id))
            throw Error(Error::Kind::invalidURL);
        FileTransfer::Request request;
        request.url = self->url(path.arg(id));
        request.timeout = pollTimeout;
        const auto answer = co_await send(self, std::move(request));
        if (answer.status == 404 && answer.outcome == FileTransfer::Answer::Outcome::answered)
            co_return std::nullopt;
        co_return decodeAnswer(answer, transcriptionFileCoding::decodePoll);
    }
};

TranscriptionFileClient::TranscriptionFileClient(Config config, AuthServiceProtocol& auth, Clock& clock)
    : m_core(new Core{std::move(config), auth, clock, nullptr, nullptr}) {
    m_core->transfer = std::make_unique<FileTransfer>(m_core->config.prepareRequest, clock);
}

TranscriptionFileClient::~TranscriptionFileClient() { m_core->transfer.reset(); }

Task<TranscriptionFileResponse> TranscriptionFileClient::transcribeFile(QString filePath, QString language,
                                                                        QString purpose,
                                                                        std::optional<QString> clientRecordingId) {
    return Core::transcribe(m_core, std::move(filePath), std::move(language), std::move(purpose),
                            std::move(clientRecordingId));
}

Task<TranscriptionFileResponse> TranscriptionFileClient::retranscribeRecord(QString audioId, QString language,
                                                                            QString purpose,
                                                                            std::optional<QString> clientRecordingId) {
    return Core::retranscribe(m_core, std::move(audioId), std::move(language), std::move(purpose),
                              std::move(clientRecordingId));
}

Task<DiarizeResponse> TranscriptionFileClient::diarizeRecord(QString audioId, QString language) {
    return Core::diarize(m_core, std::move(audioId), std::move(language));
}

Task<std::optional<DiarizationPollResponse>> TranscriptionFileClient::pollDiarization(QString taskId) {
    return Core::poll(m_core, std::move(taskId), QStringLiteral("/transcription/diarization/%1"));
}

Task<std::optional<DiarizationPollResponse>>
TranscriptionFileClient::recoverDiarizationByRecordingId(QString recordingId) {
    return Core::poll(m_core, std::move(recordingId), QStringLiteral("/transcription/recording/%1/diarization"));
}

} // namespace quillo
