#pragma once

#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <QUrl>

#include <functional>
#include <stdexcept>

namespace quillo::test {

/// A real HTTP server in this process, with or without TLS. It calls its script for each complete request; the script
/// answers with any bytes, in parts, or not at all.
class ScriptedServer : public QTcpServer {
public:
    struct Request {
        QByteArray line; ///< "POST /path HTTP/1.1"
        QByteArray head; ///< with that line and the empty one
        QByteArray body; ///< empty unless `keepsBodies`
        qint64 bodyBytes = 0;

        [[nodiscard]] QByteArray header(const QByteArray& name) const {
            for (const auto& entry : head.split('\n'))
                if (const auto colon = entry.indexOf(':'); entry.left(colon).trimmed().toLower() == name.toLower())
                    return entry.mid(colon + 1).trimmed();
            return {};
        }
    };
    using Script = std::function<void(const Request& request, QSslSocket& connection)>;
    /// Raw text, after which the connection ends; an empty one leaves the client waiting.
    using Answer = std::function<QByteArray(const Request&)>;

    ScriptedServer(const QSslConfiguration& tls, Script script) : m_tls(tls), m_script(std::move(script)) {
        if (!listen(QHostAddress::LocalHost))
            throw std::runtime_error(errorString().toStdString());
    }
    /// Without TLS.
    explicit ScriptedServer(Answer answer)
        : ScriptedServer({}, [this, answer = std::move(answer)](const Request& request, QSslSocket& connection) {
              if (const auto text = answer(request); !text.isEmpty())
                  send(connection, text);
          }) {
        m_isPlain = true;
    }

    [[nodiscard]] QUrl url(const QString& scheme, const QString& path = {}) const {
        return QUrl(u"%1://localhost:%2%3"_qs.arg(scheme).arg(serverPort()).arg(path));
    }

    /// An HTTP answer that ends the connection.
    static QByteArray http(const QByteArray& status, const QByteArray& body = {}, const QByteArray& headers = {}) {
        return "HTTP/1.1 " + status + "\r\n" + headers +
               "Connection: close\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    }
    static void answer(QSslSocket& connection, const QByteArray& status, const QByteArray& body,
                       const QByteArray& headers = {}) {
        connection.write(http(status, body, headers));
        connection.disconnectFromHost();
    }
    /// Sends what a test held back to every client that waits, and ends their connections.
    void answerAll(const QByteArray& text) {
        for (auto* const socket : findChildren<QSslSocket*>()) {
            socket->write(text);
            socket->disconnectFromHost();
        }
    }
    /// Reads everything that waits, and what comes.
    void resumeReading() {
        for (auto* const socket : findChildren<QSslSocket*>()) {
            socket->setReadBufferSize(0);
            connect(socket, &QSslSocket::readyRead, socket, [socket] { socket->readAll(); });
            socket->readAll();
        }
    }

    QList<Request> requests;
    bool keepsBodies = true;
    bool stopsReading = false; ///< after an answer the connection stays, and nothing more is read from it

protected:
    void incomingConnection(qintptr descriptor) override {
        auto* const socket = new QSslSocket(this);
        connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QSslSocket::readyRead, this, [this, socket, request = Request()]() mutable {
            auto data = socket->readAll();
            if (request.line.isEmpty()) {
                request.head += data;
                const auto end = request.head.indexOf("\r\n\r\n");
                if (end < 0)
                    return;
                data = request.head.mid(end + 4);
                request.head.truncate(end + 4);
                request.line = request.head.left(request.head.indexOf('\r'));
            }
            request.bodyBytes += data.size();
            if (keepsBodies)
                request.body += data;
            if (request.bodyBytes < request.header("Content-Length").toLongLong())
                return;
            requests.append(std::exchange(request, {}));
            m_script(Request(requests.back()), *socket);
        });
        socket->setSocketDescriptor(descriptor);
        if (m_isPlain)
            return;
        socket->setSslConfiguration(m_tls);
        socket->startServerEncryption();
    }

private:
    void send(QSslSocket& socket, const QByteArray& text) {
        socket.write(text);
        if (!stopsReading)
            return socket.disconnectFromHost();
        // With its own small buffer full, the socket leaves the rest to the kernel, which then slows the client.
        socket.setReadBufferSize(1024);
        QObject::disconnect(&socket, &QSslSocket::readyRead, this, nullptr);
    }

    QSslConfiguration m_tls;
    Script m_script;
    bool m_isPlain = false;
};

} // namespace quillo::test
