#include "ServerFixture.h"

#include <QFile>
#include <QTcpSocket>

namespace quillo::test {

using server::Json;

bool isComplete(const QByteArray& answer) {
    const auto split = answer.indexOf("\r\n\r\n");
    const auto length = answer.indexOf("Content-Length: ");
    return split > 0 && length > 0 && length < split &&
           answer.size() >=
               split + 4 + answer.mid(length + 16, answer.indexOf('\r', length) - length - 16).toLongLong();
}

TestServer::TestServer(const char* script, server::ServerOptions options)
    : TestServer(
          server::makeScriptedRecogniser(script ? server::Script::fromJson(script) : server::Script::defaultScript()),
          std::move(options)) {}

TestServer::TestServer(std::shared_ptr<server::Recogniser> recogniser, server::ServerOptions options) {
    if (options.listen == server::ServerOptions().listen)
        options.listen = "127.0.0.1:0";
    // Few tests want to wait for their own clients.
    if (options.drainTime == server::ServerOptions().drainTime)
        options.drainTime = options.drainTime.zero();
    if (options.dataFolder.empty())
        options.dataFolder = dataFolder();
    m_server = std::make_unique<server::Server>(options, std::move(recogniser));
    m_server->start();
}

std::filesystem::path TestServer::dataFolder() const { return m_folder.filePath(u"data"_qs).toStdString(); }

QByteArray TestServer::exchangeEncrypted(const QByteArray& bytes) const {
    QSslSocket socket;
    socket.setSslConfiguration(trust());
    socket.connectToHostEncrypted(u"localhost"_qs, m_server->port());
    socket.write(bytes);
    // The server waits a while for the client to close first.
    QByteArray answer;
    EXPECT_TRUE(waitUntil([&] {
        answer += socket.readAll();
        return isComplete(answer) || socket.state() == QAbstractSocket::UnconnectedState;
    })) << bytes.left(80).data();
    return answer;
}

QSslConfiguration TestServer::trust() const {
    QFile file(QString::fromStdString(m_server->authorityFile().string()));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    auto configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates({QSslCertificate(&file)});
    return configuration;
}

QString TestServer::token(const char* device) const {
    const auto answer = post(m_server->port(), "/auth/anonymous",
                             QByteArray("{\"device_id\":\"") + device + "\",\"platform\":\"macos\"}");
    return QString::fromStdString(answer.body["tokens"]["access_token"].get<std::string>());
}

QUrl TestServer::streamUrl(const QString& token, bool encrypted) const {
    return QUrl((encrypted ? u"wss://localhost:"_qs : u"ws://127.0.0.1:"_qs) + QString::number(m_server->port()) +
                u"/ws/v3/transcribe?token="_qs + token);
}

QByteArray exchange(uint16_t port, const QByteArray& bytes) {
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_qs, port);
    socket.write(bytes);
    EXPECT_TRUE(waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; }))
        << bytes.left(80).data();
    return socket.readAll();
}

HttpAnswer parseAnswer(const QByteArray& bytes) {
    HttpAnswer answer;
    const auto split = bytes.indexOf("\r\n\r\n");
    answer.header = bytes.left(split);
    answer.status = bytes.mid(9, 3).toInt();
    if (split > 0)
        answer.body = server::parseJson(bytes.mid(split + 4).toStdString()).value_or(Json());
    return answer;
}

QByteArray requestBytes(const QByteArray& method, const QByteArray& target, const QByteArray& headers,
                        const QByteArray& body) {
    const auto length = "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return method + ' ' + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + headers +
           (method == "GET" ? QByteArray() : length) + "\r\n" + body;
}

QByteArray upgradeRequest(const QString& token) {
    return "GET /ws/v3/transcribe?token=" + token.toUtf8() +
           " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}

QByteArray bearer(const QString& token) { return "Authorization: Bearer " + token.toLatin1() + "\r\n"; }

HttpAnswer get(uint16_t port, const QByteArray& path, const QByteArray& headers) {
    return parseAnswer(exchange(port, requestBytes("GET", path, headers)));
}

HttpAnswer post(uint16_t port, const QByteArray& path, const QByteArray& body, const QByteArray& contentType) {
    return parseAnswer(exchange(port, requestBytes("POST", path, "Content-Type: " + contentType + "\r\n", body)));
}

StreamClient::StreamClient() {
    QObject::connect(&socket, &QWebSocket::textMessageReceived, [this](const QString& text) {
        messages.push_back(server::parseJson(text.toStdString()).value_or(Json()));
    });
    QObject::connect(&socket, &QWebSocket::disconnected, [this] { closed = true; });
    QObject::connect(&socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), [this] {
        if (error.isEmpty())
            error = socket.errorString();
        closed = true;
    });
}

StreamClient::StreamClient(const QUrl& url, const QSslConfiguration& tls) : StreamClient() {
    socket.setSslConfiguration(tls);
    socket.open(url);
}

void StreamClient::sendAudio(const QByteArray& samples) {
    send((R"({"type":"audio_chunk","data":")" + samples.toBase64() + "\"}").constData());
}

Json StreamClient::finish(int milliseconds) {
    for (; milliseconds > 0; milliseconds -= 100)
        sendAudio(std::min(milliseconds, 100));
    end();
    return next("session_ended");
}

Json StreamClient::next(const std::string& type) {
    Json found;
    const bool came = waitUntil([&] {
        while (taken < messages.size()) {
            const Json& message = messages[taken++];
            if (message.value("type", "") == type) {
                found = message.at("data");
                return true;
            }
        }
        return closed;
    });
    if (!came || found.is_null())
        throw std::runtime_error("no " + type + " came; " + error.toStdString());
    return found;
}

bool StreamClient::waitClosed() {
    return waitUntil([this] { return closed; });
}

int StreamClient::count(const std::string& type) const {
    return static_cast<int>(std::count_if(messages.begin(), messages.end(),
                                          [&](const Json& message) { return message.value("type", "") == type; }));
}

} // namespace quillo::test
