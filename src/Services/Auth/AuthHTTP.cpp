#include "Services/Auth/AuthHTTP.h"

#include "Concurrency/AsyncStream.h"
#include "Core/Json.h"

#include <QNetworkReply>
#include <QTimer>

namespace quillo {

namespace {

constexpr qint64 longestAnswer = 1024LL * 1024; // bytes

AuthHTTPAnswer readAnswer(QNetworkReply& reply) {
    AuthHTTPAnswer answer;
    answer.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool isCut = answer.isAnswered() && reply.error() != QNetworkReply::NoError &&
                       reply.error() < QNetworkReply::ContentAccessDenied;
    if (!answer.isAnswered() || isCut) {
        // A status with a truncated body does not count as an answer.
        answer.status = 0;
        answer.failure = reply.errorString();
        answer.isHandshakeFailure = reply.error() == QNetworkReply::SslHandshakeFailedError;
    } else {
        answer.body = reply.readAll();
    }
    return answer;
}

} // namespace

QString AuthHTTPAnswer::description() const { return isAnswered() ? QStringLiteral("status %1").arg(status) : failure; }

bool AuthHTTPAnswer::hasCode(const QString& code) const {
    const auto json = json::parse(body);
    return json && json::value<QString>(*json, "code") == code;
}

bool AuthHTTPAnswer::isTokenRejection() const {
    if (!isRejection())
        return false;
    const auto json = json::parse(body);
    const auto error = json ? json::value<QString>(*json, "error") : std::nullopt;
    return error == QStringLiteral("invalid_grant") || error == QStringLiteral("invalid_token");
}

Task<AuthHTTPAnswer> AuthHTTP::send(AuthHTTPRequest request, std::chrono::milliseconds timeout) {
    return send(&m_network, m_prepare, std::move(request), timeout);
}

Task<AuthHTTPAnswer> AuthHTTP::send(QPointer<QNetworkAccessManager> network, Prepare prepare, AuthHTTPRequest sent,
                                    std::chrono::milliseconds timeout) {
    AuthHTTPAnswer answer;
    for (int attempt = 1; attempt <= 2 && network; ++attempt) {
        QNetworkRequest request(sent.url);
        if (!sent.json.isEmpty())
            request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        if (!sent.accessToken.isEmpty())
            request.setRawHeader("Authorization", "Bearer " + sent.accessToken.toUtf8());
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        if (prepare)
            prepare(request);
        answer = co_await awaitReply(network->sendCustomRequest(request, sent.method, sent.json), timeout);
        if (!answer.isHandshakeFailure)
            break;
        // On the very first start the local server creates its authority while we wait in its queue. Now it exists, but
        // the manager would keep using the old configuration.
        if (network)
            network->clearConnectionCache();
    }
    co_return answer;
}

Task<AuthHTTPAnswer> AuthHTTP::awaitReply(QNetworkReply* reply, std::chrono::milliseconds timeout) {
    auto [answers, sink] = AsyncStream<AuthHTTPAnswer>::make(EventExecutor::main());
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > longestAnswer)
            reply->abort();
    });
    // Limit the whole request, because all callers that need the same answer wait for it.
    QTimer::singleShot(timeout, reply, [reply] { reply->abort(); });
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, sink = sink] {
        sink.yield(readAnswer(*reply));
        sink.finish();
        reply->deleteLater();
    });
    // Destroying the manager deletes the reply without emitting finished().
    QObject::connect(reply, &QObject::destroyed, [sink = sink] { sink.finish(); });
    auto answer = co_await answers.next();
    if (!answer)
        co_return AuthHTTPAnswer{.status = 0, .body = {}, .failure = QStringLiteral("the request was dropped")};
    co_return *std::move(answer);
}

} // namespace quillo
