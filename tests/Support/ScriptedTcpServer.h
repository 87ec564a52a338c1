#pragma once

#include <QHash>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <functional>

namespace quillo::test {

/// A TCP server whose answer to each whole HTTP request is raw text. An empty answer leaves the client waiting.
class ScriptedTcpServer : public QTcpServer {
public:
    struct Request {
        QByteArray head; ///< with the empty line
        QByteArray body;
    };
    using Answer = std::function<QByteArray(const Request&)>;

    explicit ScriptedTcpServer(Answer answer) : m_answer(std::move(answer)) {
        if (!listen(QHostAddress::LocalHost))
            throw std::runtime_error(errorString().toStdString());
        connect(this, &QTcpServer::newConnection, this, [this] { accept(nextPendingConnection()); });
    }

    [[nodiscard]] QUrl url(const QString& scheme) const {
        return QUrl(u"%1://localhost:%2"_qs.arg(scheme).arg(serverPort()));
    }

    /// An HTTP answer that ends the connection.
    static QByteArray http(const QByteArray& status, const QByteArray& body = {}, const QByteArray& headers = {}) {
        return "HTTP/1.1 " + status + "\r\n" + headers +
               "Connection: close\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    }

    /// Sends what a test held back to every client that waits, and ends their connections.
    void answerAll(const QByteArray& answer) {
        for (auto* const socket : findChildren<QTcpSocket*>()) {
            socket->write(answer);
            socket->disconnectFromHost();
        }
    }

    /// Reads everything that waits, and whatever comes.
    void resumeReading() {
        for (auto* const socket : findChildren<QTcpSocket*>()) {
            socket->setReadBufferSize(0);
            connect(socket, &QTcpSocket::readyRead, socket, [socket] { socket->readAll(); });
            socket->readAll();
        }
    }

    QList<Request> requests;
    bool stopsReading = false; ///< after an answer the connection stays, and nothing more is read from it

private:
    void accept(QTcpSocket* socket) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, data = QByteArray()]() mutable {
            data += socket->readAll();
            const auto end = data.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const auto head = data.left(end + 4);
            const auto mark = head.toLower().indexOf("content-length:");
            const auto length =
                mark < 0 ? 0 : head.mid(mark + 15, head.indexOf('\r', mark) - mark - 15).trimmed().toInt();
            if (data.size() < head.size() + length)
                return;
            requests.append({head, data.mid(head.size(), length)});
            data.clear();
            const auto answer = m_answer(requests.back());
            if (answer.isEmpty())
                return;
            socket->write(answer);
            if (!stopsReading)
                return socket->disconnectFromHost();
            // With its own small buffer full, the socket leaves the rest to the kernel, which then slows the client.
            socket->setReadBufferSize(1024);
            QObject::disconnect(socket, &QTcpSocket::readyRead, this, nullptr);
        });
    }

    Answer m_answer;
};

} // namespace quillo::test
