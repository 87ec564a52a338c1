#include "Services/Socket/WebSocketServiceActor.h"

#include "Services/Protocol/ServerMessageDecoding.h"

#include <QAuthenticator>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QStringBuilder>
#include <QTimer>
#include <QUrlQuery>

namespace quillo {

namespace {

using Code = WebSocketError::Code;
using namespace std::chrono_literals;

/// The socket fails on messages beyond this size. A message between the longest frame and this size is read and
/// dropped, and the session continues.
constexpr quint64 socketFrameLimit = 64ULL * 1024 * 1024;
/// How long a closed socket may take to send its last bytes before it is deleted.
constexpr auto closingTime = 2s;

/// The status of an answer other than 101, which the socket reports only in its error text; 0 when there was none.
int rejectedStatus(const QString& errorText) {
    static const QRegularExpression status(QStringLiteral("status code: (\\d{3})"));
    return status.match(errorText).captured(1).toInt();
}

void answer(const WebSocketServiceActor::ReplySink& sink, WebSocketReply reply) {
    sink.yield(std::move(reply));
    sink.finish();
}

} // namespace

WebSocketServiceActor::WebSocketServiceActor(WebSocketConfig config, std::shared_ptr<WebSocketServiceState> state)
    : m_config(std::move(config)), m_state(std::move(state)) {}

void WebSocketServiceActor::connect(uint64_t connection, const QUrl& serverURL, const EventSink& events,
                                    const ReplySink& reply) {
    if (m_state->isConnecting)
        return answer(reply, {WebSocketReply::Kind::busy});
    if (m_state->isConnected) {
        logFromMain(QStringLiteral("Already connected, skipping"));
        return answer(reply, {WebSocketReply::Kind::alreadyConnected});
    }
    m_state->isConnecting = true;
    m_connection = connection;
    m_connectReply = reply;
    m_messageContinuation = events;
    m_isGracefullyDisconnecting = false;
    m_reportedFaults.clear();
    m_sessionId.clear();
    if (const auto address = addressWithToken(serverURL))
        open(*address);
}

std::optional<QUrl> WebSocketServiceActor::addressWithToken(const QUrl& serverURL) {
    auto token = m_config.staticToken;
    if (!token && m_config.tokenStorage)
        token = m_config.tokenStorage->accessToken();
    const bool hasToken = token && !token->isEmpty();
    if (hasToken) {
        logFromMain(QStringLiteral("Token provided for connection (from %1)")
                        .arg(m_config.staticToken ? QStringLiteral("static") : QStringLiteral("storage")));
    } else if (m_config.allowsMissingToken) {
        logFromMain(QStringLiteral("⚠️ No token provided for WebSocket connection (dev mode)"), LogLevel::warn);
    } else {
        logFromMain(QStringLiteral("🔒 No token provided for WebSocket connection. Forcing re-auth."), LogLevel::warn);
        failConnect(WebSocketReply::failure(Code::notAuthenticated), {}, 0);
        return std::nullopt;
    }
    auto address = serverURL;
    if (hasToken) {
        QUrlQuery query(address);
        // Encode here: a part of the token that looks like an escape must stay unchanged.
        query.addQueryItem(QStringLiteral("token"), QString::fromLatin1(QUrl::toPercentEncoding(*token)));
        address.setQuery(query);
    }
    const bool isWebSocket = address.scheme() == QStringLiteral("ws") || address.scheme() == QStringLiteral("wss");
    if (!address.isValid() || address.host().isEmpty() || !isWebSocket) {
        logFromMain(QStringLiteral("❌ Invalid URL: ") % redactedAddress(address), LogLevel::error);
        failConnect(WebSocketReply::failure(Code::invalidURL), {}, 0);
        return std::nullopt;
    }
    return address;
}

void WebSocketServiceActor::open(const QUrl& address) {
    const auto shown = redactedAddress(address);
    logFromMain(QStringLiteral("🔌 Connecting to: ") % shown);
    m_delegate.emplace(shown);
    // The socket sends Upgrade, Connection and Sec-WebSocket-Version itself, in this order, before what is set here.
    QNetworkRequest request(address);
    // The words by which the servers know the desktop program; see docs/compatibility.md.
    request.setRawHeader("User-Agent", "Quillo/" + m_config.clientVersion.toUtf8() + " (macOS; Macintosh)");
    m_socket = new QWebSocket;
    m_socket->setMaxAllowedIncomingMessageSize(socketFrameLimit);
    m_socket->setMaxAllowedIncomingFrameSize(socketFrameLimit);
    if (m_config.trust && address.scheme() == QStringLiteral("wss"))
        m_socket->setSslConfiguration(m_config.trust->configuration(address));
    watchSocket();
    logFromMain(QStringLiteral("Starting WebSocket task..."));
    m_socket->open(request);
    logFromMain(QStringLiteral("Task resumed, waiting for server response..."));
}

void WebSocketServiceActor::watchSocket() {
    m_watch = std::make_unique<QObject>();
    auto* const watch = m_watch.get();
    auto* const socket = m_socket;
    QObject::connect(socket, &QWebSocket::connected, watch, [this] { m_delegate->opened(m_socket->subprotocol()); });
    QObject::connect(socket, &QWebSocket::textMessageReceived, watch,
                     [this](const QString& frame) { received(frame); });
    QObject::connect(socket, &QWebSocket::binaryMessageReceived, watch,
                     [] { logFromMain(QStringLiteral("[WebSocket] 📩 Binary data received (ignored)")); });
    QObject::connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), watch,
                     [this](QAbstractSocket::SocketError code) { socketFailed(m_socket->errorString(), code); });
    QObject::connect(socket, &QWebSocket::disconnected, watch, [this] { socketClosed(); });
    QObject::connect(socket, &QWebSocket::bytesWritten, watch, [this] { sendUnsent(); });
    QObject::connect(socket, &QWebSocket::sslErrors, watch, [this](const QList<QSslError>& errors) {
        for (const auto& error : errors)
            m_delegate->challenged(QStringLiteral("server trust: ") % error.errorString());
    });
    QObject::connect(socket, &QWebSocket::proxyAuthenticationRequired, watch,
                     [this] { m_delegate->challenged(QStringLiteral("proxy")); });
}

void WebSocketServiceActor::received(const QString& frame) {
    ++m_state->framesReceived;
    if (m_state->isConnecting)
        receivedFirst(frame);
    else if (m_messageContinuation)
        decode(frame);
}

void WebSocketServiceActor::receivedFirst(const QString& frame) {
    const auto response = ServerResponse::decode(frame.toUtf8());
    if (!response || response->type != QStringLiteral("connected")) {
        logFromMain(QStringLiteral("⚠️ Unexpected response type"), LogLevel::warn);
        auto reason = QStringLiteral("Unexpected response type");
        if (response && response->data.message)
            reason += QStringLiteral(": ") % *response->data.message;
        return failConnect(WebSocketReply::failure(Code::connectionFailed, reason), QStringLiteral("QWebSocket"), 0);
    }
    logFromMain(QStringLiteral("📩 Received initial message from server"));
    m_state->isConnected = true;
    m_state->isConnecting = false;
    logFromMain(QStringLiteral("✅ Connected successfully!"));
    m_messageContinuation->yield(server::Connected{});
    answer(*std::exchange(m_connectReply, std::nullopt), {});
}

void WebSocketServiceActor::decode(const QString& frame) {
    // Its size alone: most frames hold what somebody is saying.
    logFromMain(QStringLiteral("[WebSocket] 📩 Raw message: %1 characters").arg(frame.size()), LogLevel::debug);
    const auto response = ServerResponse::decode(frame.toUtf8());
    if (!response) {
        logFromMain(QStringLiteral("[WebSocket] ⚠️ Failed to parse message"), LogLevel::warn);
        return;
    }
    logFromMain(QStringLiteral("[WebSocket] 📩 Parsed message type: ") % response->type, LogLevel::debug);
    reportFaults(*response);
    QStringList lines;
    auto message =
        m_state->changeTexts([&](SessionTexts& texts) { return decodeServerMessage(*response, texts, lines); });
    for (const auto& line : lines)
        logFromMain(line);
    if (const auto* const started = std::get_if<server::SessionStarted>(&message))
        m_sessionId = started->sessionId;
    const auto* const error = std::get_if<server::Error>(&message);
    if (error && error->code == QStringLiteral("NO_SESSION") && m_isGracefullyDisconnecting) {
        logFromMain(QStringLiteral("ℹ️ Ignoring NO_SESSION during graceful disconnect"));
        return;
    }
    m_messageContinuation->yield(std::move(message));
}

void WebSocketServiceActor::reportFaults(const ServerResponse& response) {
    for (const auto& fault : response.typeFaults) {
        if (m_reportedFaults.contains(fault))
            continue;
        m_reportedFaults.insert(fault);
        logFromMain(
            QStringLiteral("[WebSocket] ⚠️ Key with a wrong value type ignored in %1: %2").arg(response.type, fault),
            LogLevel::warn);
    }
}

void WebSocketServiceActor::fail(uint64_t connection, const QString& reason) {
    if (connection == m_connection && m_socket)
        socketFailed(reason, QAbstractSocket::SocketTimeoutError);
}

void WebSocketServiceActor::socketFailed(const QString& reason, int code) {
    m_delegate->failed(reason, m_socket->errorString(), code);
    if (!m_state->isConnecting)
        return connectionEnded(reason);
    if (const auto status = rejectedStatus(reason))
        return failConnect(WebSocketReply::failure(Code::connectionFailed,
                                                   QStringLiteral("bad server response (HTTP status %1)").arg(status),
                                                   status),
                           QStringLiteral("HTTP"), status);
    failConnect(WebSocketReply::failure(Code::connectionFailed, reason), QStringLiteral("QAbstractSocket"), code);
}

void WebSocketServiceActor::socketClosed() {
    // The socket's error has already reported an unclean end.
    m_delegate->closed(m_socket->closeCode(), m_socket->closeReason());
    m_delegate->completed();
    const auto reason = QStringLiteral("the server closed the connection with code %1").arg(m_socket->closeCode());
    if (m_state->isConnecting)
        return failConnect(WebSocketReply::failure(Code::connectionFailed, reason), QStringLiteral("QWebSocket"),
                           m_socket->closeCode());
    connectionEnded(reason);
}

void WebSocketServiceActor::failConnect(const WebSocketReply& reply, const QString& domain, int code) {
    if (reply.code == Code::connectionCancelled) {
        logFromMain(QStringLiteral("⚠️ Connection cancelled by user (quick tap)"), LogLevel::warn);
    } else if (reply.code == Code::connectionFailed) {
        logFromMain(QStringLiteral("❌ Connection failed: ") % reply.reason, LogLevel::error);
        logFromMain(QStringLiteral("❌ Full error: ") % (m_socket ? m_socket->errorString() : reply.reason),
                    LogLevel::error);
        // A line that readers of the log search for; see docs/compatibility.md.
        logFromMain(QStringLiteral("❌ NSError domain=%1 code=%2").arg(domain).arg(code), LogLevel::error);
    }
    m_state->isConnecting = false;
    leaveSocket(false);
    finishEvents();
    answer(*std::exchange(m_connectReply, std::nullopt), reply);
}

void WebSocketServiceActor::connectionEnded(const QString& reason) {
    m_state->isConnected = false;
    leaveSocket(false);
    if (m_isGracefullyDisconnecting || !m_messageContinuation) {
        logFromMain(QStringLiteral("[WebSocket] ℹ️ Receive loop ended due to graceful disconnect/cancel"));
    } else {
        logFromMain(QStringLiteral("[WebSocket] ❌ Receive error: ") % reason, LogLevel::error);
        saveTextBeforeDisconnect(true);
        logFromMain(QStringLiteral("[WebSocket] ⚠️ Unexpected disconnect - text saved for recovery"), LogLevel::warn);
        const WebSocketError error(Code::receiveFailed, reason);
        m_messageContinuation->yield(server::ConnectionLost{QString::fromUtf8(error.what())});
    }
    finishEvents();
    failUnsent();
}

void WebSocketServiceActor::saveTextBeforeDisconnect(bool markAsRecovered) {
    const auto saved = m_state->changeTexts([markAsRecovered](SessionTexts& texts) {
        auto best = texts.bestAvailableText();
        if (!best.isEmpty()) {
            texts.savedTextFromDisconnect = best;
            texts.hasRecoveredText = texts.hasRecoveredText || markAsRecovered;
        }
        return best;
    });
    if (saved.isEmpty())
        logFromMain(QStringLiteral("💾 No text to save for recovery"));
    else
        logFromMain((markAsRecovered ? QStringLiteral("💾 Saved text for recovery: %1 characters")
                                     : QStringLiteral("💾 Saved text (graceful): %1 characters"))
                        .arg(saved.size()));
}

void WebSocketServiceActor::consumerLeft(uint64_t connection) {
    if (connection == m_connection)
        m_messageContinuation.reset();
}

void WebSocketServiceActor::disconnect(const ReplySink& reply) {
    m_isGracefullyDisconnecting = true;
    saveTextBeforeDisconnect(false);
    m_state->isConnected = false;
    if (m_connectReply)
        failConnect(WebSocketReply::failure(Code::connectionCancelled), {}, 0);
    leaveSocket(true);
    finishEvents();
    failUnsent();
    logFromMain(QStringLiteral("🔌 Disconnected gracefully"));
    answer(reply, {});
}

void WebSocketServiceActor::send(const QString& frame, const QString& logLine, const ReplySink& reply) {
    if (!m_state->isConnected || !m_socket)
        return answer(reply, WebSocketReply::failure(Code::notConnected));
    m_unsent.push_back({frame, logLine, reply});
    sendUnsent();
}

void WebSocketServiceActor::sendLast(const QString& frame, const QString& logLine, const ReplySink& reply) {
    if (m_state->isConnected && m_socket)
        m_isGracefullyDisconnecting = true;
    send(frame, logLine, reply);
}

void WebSocketServiceActor::sendUnsent() {
    while (!m_unsent.empty() && m_socket && m_socket->bytesToWrite() < m_config.unsentLimit) {
        const auto next = std::move(m_unsent.front());
        m_unsent.pop_front();
        m_socket->sendTextMessage(next.frame);
        if (!next.logLine.isEmpty())
            logFromMain(next.logLine);
        answer(next.reply, {});
    }
}

void WebSocketServiceActor::failUnsent() {
    for (const auto& unsent : std::exchange(m_unsent, {}))
        answer(unsent.reply, WebSocketReply::failure(Code::notConnected));
}

void WebSocketServiceActor::finishEvents() {
    if (const auto events = std::exchange(m_messageContinuation, std::nullopt))
        events->finish();
}

void WebSocketServiceActor::leaveSocket(bool gracefully) {
    // Deleting the receiver inside one of its slots is allowed; the slot is kept until it returns.
    m_watch.reset();
    auto* const socket = std::exchange(m_socket, nullptr);
    if (!socket)
        return;
    if (!gracefully) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    // Keep the socket for a moment after the connection, because the last data is still being sent.
    std::erase_if(m_closing, [](const auto& closing) { return closing.isNull(); });
    m_closing.emplace_back(socket);
    QObject::connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(closingTime, socket, [socket] {
        socket->abort();
        socket->deleteLater();
    });
    const auto delegate = *m_delegate;
    QObject::connect(socket, &QWebSocket::disconnected, socket,
                     [delegate] { delegate.closed(QWebSocketProtocol::CloseCodeGoingAway, {}); });
    socket->close(QWebSocketProtocol::CloseCodeGoingAway);
}

void WebSocketServiceActor::shutdown() {
    m_isGracefullyDisconnecting = true;
    m_state->isConnected = false;
    m_state->isConnecting = false;
    m_watch.reset();
    delete std::exchange(m_socket, nullptr);
    for (const auto& closing : std::exchange(m_closing, {}))
        delete closing.data();
    if (const auto reply = std::exchange(m_connectReply, std::nullopt))
        answer(*reply, WebSocketReply::failure(Code::connectionCancelled));
    finishEvents();
    failUnsent();
}

} // namespace quillo
