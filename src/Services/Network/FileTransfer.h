#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/Task.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace quillo {

/// A file and its form fields, sent as multipart form data.
struct FileUpload {
    QString filePath;
    QString fileName;                                   ///< as sent to the server
    std::vector<std::pair<QByteArray, QString>> fields; ///< after the file, in this order
};

/// Uploads whole files and reads the answers, each over its own connection. Main thread.
///
/// Files are streamed, never held in memory. Redirects are not followed, because every request carries the user's
/// token. An answer longer than `longestAnswer` is refused before it is complete.
class FileTransfer {
public:
    /// In bytes. The longest real answer, an eight-hour meeting by speakers, is around 4 MiB.
    static constexpr qint64 longestAnswer = 16LL * 1024 * 1024;

    struct Request {
        QUrl url;
        QString accessToken;
        /// The longest time without progress while a file is sent, from then to the answer's first byte, and from there
        /// to its last.
        std::chrono::milliseconds timeout{60'000};
        std::optional<FileUpload> upload; ///< POST with one, GET without
    };

    struct Answer {
        enum class Outcome {
            answered,
            unusable,    ///< too long or incomplete
            unreachable, ///< no answer, or a truncated one
        };
        Outcome outcome = Outcome::unreachable;
        int status = 0;
        QByteArray body;
        QString redirectTo;                             ///< host of a redirect
        std::optional<std::chrono::seconds> retryAfter; ///< of the header of that name (RFC 9110)
        QString failure;                                ///< when not answered
        bool isHandshakeFailure = false;                ///< the server's certificate was not trusted
    };

    /// Sets the authorities that a request trusts; may be empty. `clock` must outlive the requests.
    using Prepare = std::function<void(QNetworkRequest&)>;
    FileTransfer(Prepare prepare, Clock& clock);
    /// Running requests end as unreachable.
    ~FileTransfer();
    FileTransfer(const FileTransfer&) = delete;
    FileTransfer& operator=(const FileTransfer&) = delete;

    /// A handshake that fails because the certificate is not trusted is retried once, with the authorities trusted
    /// then.
    Task<Answer> send(Request request);

private:
    struct Core;
    static Task<Answer> send(std::shared_ptr<Core> core, Request request);
    static Task<Answer> attempt(std::shared_ptr<Core> core, Request request);

    std::shared_ptr<Core> m_core;
};

} // namespace quillo
