#pragma once

#include <QPointer>
#include <QSslConfiguration>
#include <QSslServer>
#include <QSslSocket>
#include <QUrl>

#include <functional>
#include <stdexcept>

namespace quillo::test {

/// A real HTTPS server in this process. It calls its script for each complete request with the connection; the script
/// may answer with any bytes, in parts, or not at all.
class ScriptedHttpsServer : public QSslServer {
public:
    struct Request {
        QByteArray line;    ///< "POST /path HTTP/1.1"
        QByteArray headers; ///< the lines after it
        QByteArray body;    ///< empty unless `keepsBodies`
        qint64 bodyBytes = 0;

        [[nodiscard]] QByteArray header(const QByteArray& name) const {
            for (const auto& entry : headers.split('\n'))
                if (const auto colon = entry.indexOf(':'); entry.left(colon).trimmed().toLower() == name.toLower())
                    return entry.mid(colon + 1).trimmed();
            return {};
        }
    };
    using Script = std::function<void(const Request& request, QSslSocket& connection)>;

    ScriptedHttpsServer(const QSslConfiguration& configuration, Script script) : m_script(std::move(script)) {
        setSslConfiguration(configuration);
        if (!listen(QHostAddress::LocalHost))
            throw std::runtime_error(errorString().toStdString());
        connect(this, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (auto* const connection = nextPendingConnection())
                serve(*qobject_cast<QSslSocket*>(connection));
        });
    }

    [[nodiscard]] QUrl url(const QString& path) const {
        return QUrl(QStringLiteral("https://localhost:%1").arg(serverPort()) + path);
    }

    /// Sends a complete answer and closes the connection.
    static void answer(QSslSocket& connection, const QByteArray& status, const QByteArray& body,
                       const QByteArray& headers = {}) {
        connection.write("HTTP/1.1 " + status + "\r\n" + headers +
                         "Connection: close\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
        connection.disconnectFromHost();
    }

    QList<Request> requests;
    bool keepsBodies = true;

private:
    void serve(QSslSocket& connection) {
        connect(&connection, &QSslSocket::disconnected, &connection, &QObject::deleteLater);
        connect(&connection, &QSslSocket::readyRead, this,
                [this, &connection, head = QByteArray(), request = Request(), expected = qint64{-1}]() mutable {
                    auto data = connection.readAll();
                    if (expected < 0) {
                        head += data;
                        const auto end = head.indexOf("\r\n\r\n");
                        if (end < 0)
                            return;
                        const auto lineEnd = head.indexOf("\r\n");
                        request.line = head.left(lineEnd);
                        request.headers = head.mid(lineEnd + 2, end - lineEnd);
                        expected = request.header("Content-Length").toLongLong();
                        data = head.mid(end + 4);
                    }
                    request.bodyBytes += data.size();
                    if (keepsBodies)
                        request.body += data;
                    if (request.bodyBytes < expected)
                        return;
                    requests.append(request);
                    m_script(request, connection);
                    head.clear();
                    request = {};
                    expected = -1;
                });
    }

    Script m_script;
};

} // namespace quillo::test
