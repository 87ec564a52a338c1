#include "Services/Network/FileTransfer.h"

#include "Concurrency/AsyncStream.h"

#include <QFile>
#include <QHttpMultiPart>
#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUuid>

namespace quillo {

namespace {

/// Why we ended a request before the network did.
struct Abort {
    bool isOverlong = false;
    bool isTimeout = false;
};

/// A name without characters that could end the quotes of a header.
QString quoted(QString name) {
    name.remove(QChar(u'\r')).remove(QChar(u'\n')).replace(u'"', u'_').replace(u'\\', u'_');
    return u'"' + name + u'"';
}

QHttpPart formPart(const QString& disposition) {
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, QStringLiteral("form-data; ") + disposition);
    return part;
}

/// Null when the file cannot be opened.
std::unique_ptr<QHttpMultiPart> makeForm(const FileUpload& upload) {
    auto form = std::make_unique<QHttpMultiPart>(QHttpMultiPart::FormDataType);
    form->setBoundary("Boundary-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces).toUpper());
    auto* const file = new QFile(upload.filePath, form.get());
    if (!file->open(QIODevice::ReadOnly))
        return nullptr;
    auto audio = formPart(QStringLiteral("name=\"file\"; filename=") + quoted(upload.fileName));
    audio.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("audio/wav"));
    audio.setBodyDevice(file);
    form->append(audio);
    for (const auto& [name, value] : upload.fields) {
        auto part = formPart(QStringLiteral("name=") + quoted(QString::fromLatin1(name)));
        part.setBody(value.toUtf8());
        form->append(part);
    }
    return form;
}

/// RFC 9110, 10.2.3: a number of seconds or a date.
std::optional<std::chrono::seconds> retryAfterOf(const QNetworkReply& reply, const QDateTime& now) {
    const auto header = QString::fromLatin1(reply.rawHeader("Retry-After")).trimmed();
    bool isNumber = false;
    const auto seconds = header.toUInt(&isNumber);
    if (isNumber)
        return std::chrono::seconds(seconds);
    const auto date = QLocale::c().toDateTime(header, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));
    if (!date.isValid())
        return std::nullopt;
    return std::chrono::seconds(std::max<qint64>(0, now.secsTo(QDateTime(date.date(), date.time(), Qt::UTC))));
}

FileTransfer::Answer readAnswer(QNetworkReply& reply, const Abort& abort, const QDateTime& now) {
    using Outcome = FileTransfer::Answer::Outcome;
    FileTransfer::Answer answer;
    answer.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    answer.retryAfter = retryAfterOf(reply, now);
    answer.redirectTo = reply.header(QNetworkRequest::LocationHeader).toUrl().host();
    if (reply.isOpen()) // not after an abort
        answer.body = reply.readAll();
    // From here on the errors only repeat the status.
    const bool isWhole = reply.error() == QNetworkReply::NoError || reply.error() >= QNetworkReply::ContentAccessDenied;
    if (abort.isOverlong || answer.body.size() > FileTransfer::longestAnswer) {
        answer.outcome = Outcome::unusable;
        answer.failure = QStringLiteral("the answer is too long");
    } else if (abort.isTimeout) {
        answer.outcome = answer.status != 0 ? Outcome::unusable : Outcome::unreachable;
        answer.failure = QStringLiteral("it did not answer in time");
    } else if (answer.status == 0 || !isWhole) {
        answer.outcome = Outcome::unreachable;
        answer.failure = reply.errorString();
        answer.isHandshakeFailure = reply.error() == QNetworkReply::SslHandshakeFailedError;
    } else {
        answer.outcome = Outcome::answered;
    }
    return answer;
}

} // namespace

struct FileTransfer::Core {
    Prepare prepare;
    Clock& clock;
    std::unique_ptr<QObject> requests; ///< parent of all running requests; null once the owner is destroyed
};

FileTransfer::FileTransfer(Prepare prepare, Clock& clock)
    : m_core(new Core{std::move(prepare), clock, std::make_unique<QObject>()}) {}

FileTransfer::~FileTransfer() { m_core->requests.reset(); }

Task<FileTransfer::Answer> FileTransfer::send(Request request) { return send(m_core, std::move(request)); }

Task<FileTransfer::Answer> FileTransfer::send(std::shared_ptr<Core> core, Request request) {
    Answer answer;
    for (int number = 1; number <= 2 && core->requests; ++number) {
        answer = co_await attempt(core, request);
        if (!answer.isHandshakeFailure)
            break;
        // The local server may have created its authority in the meantime.
    }
    co_return answer;
}

Task<FileTransfer::Answer> FileTransfer::attempt(std::shared_ptr<Core> core, Request description) {
    QNetworkRequest request(description.url);
    request.setRawHeader("Authorization", "Bearer " + description.accessToken.toUtf8());
    // The word by which the servers know the desktop program; see docs/compatibility.md.
    request.setRawHeader("X-Platform", "macOS");
    // Do not accept compression: a short answer may decompress to a very long one.
    request.setRawHeader("Accept-Encoding", "identity");
    request.setRawHeader("Connection", "close");
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    // HTTP/2 brings no benefit with one request at a time.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    if (core->prepare)
        core->prepare(request);

    // Use a new manager for each request. Requests are minutes apart, and on a kept connection that the server has
    // closed the next one would fail, because a POST is not resent automatically.
    auto* const network = new QNetworkAccessManager(core->requests.get());
    QNetworkReply* reply = nullptr;
    if (description.upload) {
        auto form = makeForm(*description.upload);
        if (!form) {
            delete network;
            co_return Answer{.failure = QStringLiteral("the audio file cannot be opened")};
        }
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArray("multipart/form-data; boundary=" + form->boundary()));
        reply = network->post(request, form.get());
        form.release()->setParent(reply);
    } else {
        reply = network->get(request);
    }

    struct Watch {
        Abort abort;
        Clock::TimerHandle timer;
    };
    const auto watch = std::make_shared<Watch>();
    const auto arm = [reply, watch, core, timeout = description.timeout] {
        watch->timer = core->clock.callLater(timeout, [reply, watch] {
            watch->abort.isTimeout = true;
            reply->abort();
        });
    };
    arm();
    auto [answers, sink] = AsyncStream<Answer>::make(EventExecutor::main());
    QObject::connect(reply, &QNetworkReply::uploadProgress, reply, [arm, reply](qint64, qint64) {
        if (!reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
            arm();
    });
    const auto refuseBeyondLimit = [reply, watch](qint64 bytes) {
        if (bytes <= longestAnswer || watch->abort.isOverlong)
            return;
        watch->abort.isOverlong = true;
        reply->abort();
    };
    QObject::connect(
        reply, &QNetworkReply::metaDataChanged, reply,
        [arm, reply, refuseBeyondLimit] {
            // Set it once, so that a trickling answer ends too.
            arm();
            refuseBeyondLimit(reply->header(QNetworkRequest::ContentLengthHeader).toLongLong());
        },
        Qt::SingleShotConnection);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, refuseBeyondLimit);
    QObject::connect(reply, &QNetworkReply::finished, reply, [network, reply, watch, core, sink = sink] {
        watch->timer.reset();
        sink.yield(readAnswer(*reply, watch->abort, core->clock.wallTime()));
        sink.finish();
        network->deleteLater();
    });
    // Destroying the manager deletes the reply without emitting finished().
    QObject::connect(reply, &QObject::destroyed, [watch, sink = sink] {
        watch->timer.reset();
        sink.finish();
    });
    auto answer = co_await answers.next();
    if (!answer)
        co_return Answer{.failure = QStringLiteral("the request was dropped")};
    co_return *std::move(answer);
}

} // namespace quillo
