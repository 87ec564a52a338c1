#pragma once

#include "Concurrency/AsyncStream.h"
#include "Services/Protocol/ServerResponse.h"
#include "Services/Socket/WebSocketConfig.h"
#include "Services/Socket/WebSocketDelegate.h"
#include "Services/Socket/WebSocketServiceState.h"

#include <QPointer>
#include <QSet>
#include <QWebSocket>

#include <deque>

namespace quillo {

/// The result of an operation as a plain value; the awaiting thread throws the exception.
struct WebSocketReply {
    enum class Kind { done, alreadyConnected, busy, failed };
    Kind kind = Kind::done;
    WebSocketError::Code code = WebSocketError::Code::notConnected;
    QString reason = {};
    int httpStatus = 0;

    static WebSocketReply failure(WebSocketError::Code code, const QString& reason = {}, int httpStatus = 0) {
        return {Kind::failed, code, reason, httpStatus};
    }
};

/// The socket and its session. Lives on the service's serial context: every function is called there, and the socket
/// is made, used and deleted there. Each reply sink receives exactly one reply.
class WebSocketServiceActor {
public:
    using ReplySink = AsyncStream<WebSocketReply>::Sink;
    using EventSink = AsyncStream<ServerMessage>::Sink;

    WebSocketServiceActor(WebSocketConfig config, std::shared_ptr<WebSocketServiceState> state);

    /// `connection` identifies this attempt in later calls. Events wait in `events` until they are read.
    void connect(uint64_t connection, const QUrl& serverURL, const EventSink& events, const ReplySink& reply);
    /// Ends this attempt or connection with a failure; called by a timer.
    void fail(uint64_t connection, const QString& reason);
    /// The reader of this connection's events has gone.
    void consumerLeft(uint64_t connection);
    void disconnect(const ReplySink& reply);
    /// Sends in order; replies and writes `logLine` once the socket has taken the frame.
    void send(const QString& frame, const QString& logLine, const ReplySink& reply);
    /// Like `send`; afterwards the end of the connection is expected.
    void sendLast(const QString& frame, const QString& logLine, const ReplySink& reply);
    /// Drops everything without waiting for a closing handshake with the server.
    void shutdown();

private:
    struct Unsent {
        QString frame;
        QString logLine;
        ReplySink reply;
    };

    std::optional<QUrl> addressWithToken(const QUrl& serverURL);
    void open(const QUrl& address);
    void watchSocket();
    void received(const QString& frame);
    void receivedFirst(const QString& frame);
    void decode(const QString& frame);
    void reportFaults(const ServerResponse& response);
    void socketFailed(const QString& reason, int code);
    void socketClosed();
    void failConnect(const WebSocketReply& reply, const QString& domain, int code);
    void connectionEnded(const QString& reason);
    void saveTextBeforeDisconnect(bool markAsRecovered);
    void sendUnsent();
    void failUnsent();
    void finishEvents();
    void leaveSocket(bool gracefully);

    WebSocketConfig m_config;
    std::shared_ptr<WebSocketServiceState> m_state;
    uint64_t m_connection = 0;
    QWebSocket* m_socket = nullptr;
    std::unique_ptr<QObject> m_watch; ///< the receiver of the socket's signals; deleting it ends them
    std::vector<QPointer<QWebSocket>> m_closing;
    std::optional<WebSocketDelegate> m_delegate;
    std::optional<ReplySink> m_connectReply;
    std::optional<EventSink> m_messageContinuation;
    std::deque<Unsent> m_unsent;
    QSet<QString> m_reportedFaults;
    QString m_sessionId;
    bool m_isGracefullyDisconnecting = false;
};

} // namespace quillo
