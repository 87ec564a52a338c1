#include "Services/Upload/TranscriptionFileClientError.h"

namespace quillo {

QString TranscriptionFileClientError::textOf(Kind kind) {
    switch (kind) {
    case Kind::invalidURL:
        return QStringLiteral("Invalid server URL.");
    case Kind::invalidResponse:
        return QStringLiteral("Invalid server response.");
    case Kind::decodingFailed:
        return QStringLiteral("Failed to decode server response.");
    case Kind::serverError:
        break;
    case Kind::audioFileMissing:
        return QStringLiteral("Audio file is no longer available on disk.");
    case Kind::audioFileUnreadable:
        return QStringLiteral("Could not read audio file.");
    case Kind::notAuthenticated:
        return QStringLiteral("Sign in to re-transcribe audio.");
    case Kind::unreachable:
        return QStringLiteral("The server could not be reached.");
    }
    return QStringLiteral("An unexpected server error occurred. Please try again.");
}

TranscriptionFileClientError TranscriptionFileClientError::serverError(int status, const QString& message,
                                                                       const QString& code,
                                                                       std::optional<std::chrono::seconds> retryAfter) {
    TranscriptionFileClientError error(Kind::serverError, message.isEmpty() ? textOf(Kind::serverError) : message,
                                       status);
    error.m_code = code;
    error.m_retryAfter = retryAfter;
    return error;
}

TranscriptionFileClientError TranscriptionFileClientError::unreachable(const QString& cause) {
    return {Kind::unreachable,
            QStringLiteral("The server could not be reached (%1). Check the network and try again.").arg(cause)};
}

} // namespace quillo
