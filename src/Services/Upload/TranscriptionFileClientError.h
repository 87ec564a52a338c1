#pragma once

#include <QString>

#include <chrono>
#include <optional>
#include <stdexcept>

namespace quillo {

/// Why a file was not transcribed. `what()` is for the log and the record; a person reads the text of the kind.
class TranscriptionFileClientError : public std::runtime_error {
public:
    enum class Kind {
        invalidURL,
        invalidResponse, ///< no usable HTTP answer: too long or never ending
        decodingFailed,
        serverError, ///< any status but 200
        audioFileMissing,
        audioFileUnreadable,
        notAuthenticated,
        unreachable, ///< no connection, or a broken one; the text names the cause
    };

    explicit TranscriptionFileClientError(Kind kind) : TranscriptionFileClientError(kind, textOf(kind)) {}
    /// With the server's own message; an empty one is replaced. `code` and `retryAfter` as the server gave them.
    static TranscriptionFileClientError serverError(int status, const QString& message, const QString& code = {},
                                                    std::optional<std::chrono::seconds> retryAfter = {});
    static TranscriptionFileClientError unreachable(const QString& cause);

    [[nodiscard]] Kind kind() const { return m_kind; }
    /// The HTTP status of a server error; 0 for other errors.
    [[nodiscard]] int status() const { return m_status; }
    /// The code in the body of a server error, such as "LANGUAGE_NOT_SERVED"; empty without one.
    [[nodiscard]] const QString& code() const { return m_code; }
    /// When the server wants to be asked again (Retry-After, RFC 9110).
    [[nodiscard]] std::optional<std::chrono::seconds> retryAfter() const { return m_retryAfter; }
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }

private:
    TranscriptionFileClientError(Kind kind, const QString& text, int status = 0)
        : std::runtime_error(text.toStdString()), m_kind(kind), m_status(status) {}
    static QString textOf(Kind kind);

    Kind m_kind;
    int m_status;
    QString m_code;
    std::optional<std::chrono::seconds> m_retryAfter;
};

} // namespace quillo
