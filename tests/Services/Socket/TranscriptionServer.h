#pragma once

#include "Support/TestCertificate.h"

#include <QPointer>
#include <QWebSocket>
#include <QWebSocketServer>

namespace quillo::test {

/// A real WebSocket server in this process that does as its test says. One client at a time counts: the latest.
class TranscriptionServer : public QObject {
public:
    /// With `certificate` it speaks TLS.
    explicit TranscriptionServer(const TestCertificate* certificate = nullptr)
        : m_server(u"test"_qs, certificate ? QWebSocketServer::SecureMode : QWebSocketServer::NonSecureMode) {
        if (certificate)
            m_server.setSslConfiguration(certificate->serverConfiguration());
        if (!m_server.listen(QHostAddress::LocalHost))
            throw std::runtime_error(m_server.errorString().toStdString());
        connect(&m_server, &QWebSocketServer::newConnection, this, [this] { accept(); });
    }

    [[nodiscard]] QUrl url() const {
        const bool secure = m_server.secureMode() == QWebSocketServer::SecureMode;
        return QUrl(
            u"%1://localhost:%2/ws/v3/transcribe"_qs.arg(secure ? u"wss"_qs : u"ws"_qs).arg(m_server.serverPort()));
    }

    void send(const QString& frame) const { client->sendTextMessage(frame); }

    QString greeting = uR"({"type":"connected"})"_qs; ///< sent to each client; nothing when empty
    QPointer<QWebSocket> client;
    int connections = 0;
    int disconnections = 0;
    QWebSocketProtocol::CloseCode closeCode = QWebSocketProtocol::CloseCodeNormal; ///< of the latest client to leave
    QString closeReason;
    QUrl requestUrl;
    QByteArray userAgent;
    QStringList received;

private:
    void accept() {
        client = m_server.nextPendingConnection();
        client->setParent(this);
        ++connections;
        requestUrl = client->requestUrl();
        userAgent = client->request().rawHeader("User-Agent");
        connect(client, &QWebSocket::textMessageReceived, this,
                [this](const QString& frame) { received.append(frame); });
        connect(client, &QWebSocket::disconnected, this, [this, socket = client.data()] {
            ++disconnections;
            closeCode = socket->closeCode();
            closeReason = socket->closeReason();
        });
        if (!greeting.isEmpty())
            send(greeting);
    }

    QWebSocketServer m_server;
};

} // namespace quillo::test
