#pragma once

#include "Concurrency/Task.h"

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

namespace quillo {

/// The result of a request. Without an answer of the server, `status` is 0 and `failure` says why.
struct AuthHTTPAnswer {
    int status = 0;
    QByteArray body;
    QString failure;
    bool isHandshakeFailure = false; ///< the server's certificate was not trusted

    [[nodiscard]] bool isAnswered() const { return status != 0; }
    /// The server understood the request and refused it. 404, 408, 429 and similar do not count as a refusal.
    [[nodiscard]] bool isRejection() const { return status == 400 || status == 401 || status == 403; }
    /// The account server refused the very token: "error" is "invalid_grant" (RFC 6749, section 5.2) or "invalid_token"
    /// (RFC 6750, section 3.1). A 403 may also come from a proxy or a firewall, so it does not end the session.
    [[nodiscard]] bool isTokenRejection() const;
    /// "code" of the server's error.
    [[nodiscard]] bool hasCode(const QString& code) const;
    /// For a message: "status 404", or the failure.
    [[nodiscard]] QString description() const;
    /// The same to follow the word "status": the number alone, or the failure.
    [[nodiscard]] QString statusText() const { return isAnswered() ? QString::number(status) : failure; }
};

struct AuthHTTPRequest {
    QByteArray method; ///< "GET", "POST", "DELETE"
    QUrl url;
    QByteArray json{};     ///< the body; without one nothing is sent
    QString accessToken{}; ///< sent as bearer token; may be empty
};

/// The requests of the account, over one access manager. Main thread. Redirects are not followed, because requests
/// carry tokens; an answer longer than 1 MiB is a failure.
class AuthHTTP {
public:
    /// Sets the authorities that a request trusts; may be empty.
    using Prepare = std::function<void(QNetworkRequest&)>;

    explicit AuthHTTP(Prepare prepare) : m_prepare(std::move(prepare)) {}

    /// A handshake that fails because the certificate is not trusted is retried once, with the authorities trusted
    /// then. Each attempt fails after `timeout` in total, even if an answer trickles, or when this object is destroyed.
    Task<AuthHTTPAnswer> send(AuthHTTPRequest request, std::chrono::milliseconds timeout);

private:
    static Task<AuthHTTPAnswer> send(QPointer<QNetworkAccessManager> network, Prepare prepare, AuthHTTPRequest sent,
                                     std::chrono::milliseconds timeout);
    static Task<AuthHTTPAnswer> awaitReply(QNetworkReply* reply, std::chrono::milliseconds timeout);

    Prepare m_prepare;
    QNetworkAccessManager m_network;
};

} // namespace quillo
