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

/// What a request came to. Without an answer of the server, `status` is 0 and `failure` says why.
struct AuthHTTPAnswer {
    int status = 0;
    QByteArray body;
    QString failure;
    bool isHandshakeFailure = false; ///< the server's certificate was not trusted

    [[nodiscard]] bool isAnswered() const { return status != 0; }
    /// The server understood and refused. 404, 408, 429 and the like say nothing about the request.
    [[nodiscard]] bool isRejection() const { return status == 400 || status == 401 || status == 403; }
    /// The account server refused the very token: "error" is "invalid_grant" (RFC 6749, section 5.2) or "invalid_token"
    /// (RFC 6750, section 3.1). A proxy or a firewall in front of it answers 403 as well, and ends nobody's session.
    [[nodiscard]] bool isTokenRejection() const;
    /// For a message: "status 404", or the failure.
    [[nodiscard]] QString description() const;
    /// The same behind the word "status": the number alone, or the failure.
    [[nodiscard]] QString statusText() const { return isAnswered() ? QString::number(status) : failure; }
};

struct AuthHTTPRequest {
    QByteArray method; ///< "GET", "POST", "DELETE"
    QUrl url;
    QByteArray json{};     ///< the body; without one nothing is sent
    QString accessToken{}; ///< sent as bearer token; may be empty
};

/// The requests of the account, over one access manager. Main thread. Redirects are not followed, as a request carries
/// tokens; an answer beyond 1 MiB is a failure.
class AuthHTTP {
public:
    /// Gives a request the authorities to trust; may be empty.
    using Prepare = std::function<void(QNetworkRequest&)>;

    explicit AuthHTTP(Prepare prepare) : m_prepare(std::move(prepare)) {}

    /// A handshake that fails for want of trust is tried once more, with what is trusted then. Each try ends with a
    /// failure after `timeout` in all, however slowly an answer trickles, or when this object goes.
    Task<AuthHTTPAnswer> send(AuthHTTPRequest request, std::chrono::milliseconds timeout);

private:
    static Task<AuthHTTPAnswer> send(QPointer<QNetworkAccessManager> network, Prepare prepare, AuthHTTPRequest sent,
                                     std::chrono::milliseconds timeout);
    static Task<AuthHTTPAnswer> awaitReply(QNetworkReply* reply, std::chrono::milliseconds timeout);

    Prepare m_prepare;
    QNetworkAccessManager m_network;
};

} // namespace quillo
