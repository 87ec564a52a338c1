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

/// A file and the words that go with it, sent as multipart form data.
struct FileUpload {
    QString filePath;
    QString fileName;                                   ///< as the server is told
    std::vector<std::pair<QByteArray, QString>> fields; ///< after the file, in this order
};

/// Requests of whole files and their answers, each over a connection of its own. Main thread.
///
/// Files are read while they are sent, never held. Redirects are not followed, as every request carries the user's
/// token. An answer beyond `longestAnswer` is refused before it is complete.
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
            unusable,    ///< too long, or its end did not come
            unreachable, ///< no answer, or one that broke off
        };
        Outcome outcome = Outcome::unreachable;
        int status = 0;
        QByteArray body;
        QString redirectTo;              ///< host of a redirect
        QString failure;                 ///< when not answered
        bool isHandshakeFailure = false; ///< the server's certificate was not trusted
    };

    /// Gives a request the authorities to trust; may be empty. `clock` outlives the requests.
    using Prepare = std::function<void(QNetworkRequest&)>;
    FileTransfer(Prepare prepare, Clock& clock);
    /// Requests that still run end as unreachable.
    ~FileTransfer();
    FileTransfer(const FileTransfer&) = delete;
    FileTransfer& operator=(const FileTransfer&) = delete;

    /// A handshake that fails for want of trust is tried once more, with what is trusted then.
    Task<Answer> send(Request request);

private:
    struct Core;
    static Task<Answer> send(std::shared_ptr<Core> core, Request request);
    static Task<Answer> attempt(std::shared_ptr<Core> core, Request request);

    std::shared_ptr<Core> m_core;
};

} // namespace quillo
