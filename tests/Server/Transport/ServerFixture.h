#pragma once

#include "Foundation/Json.h"
#include "Support/Async.h"
#include "Transcription/Scripted/ScriptedRecogniser.h"
#include "Transport/Server.h"

#include <QSslConfiguration>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QWebSocket>

#include <memory>

namespace quillo::test {

/// The real server in this process, on a free port, with a scripted recogniser.
class TestServer {
public:
    explicit TestServer(const char* script = nullptr, server::ServerOptions options = {});
    explicit TestServer(std::shared_ptr<server::Recogniser> recogniser, server::ServerOptions options = {});

    server::Server& operator*() { return *m_server; }
    server::Server* operator->() { return m_server.get(); }
    [[nodiscard]] QSslConfiguration trust() const;
    /// An access token of a new anonymous user.
    [[nodiscard]] QString token(const char* device = "device") const;
    [[nodiscard]] std::filesystem::path dataFolder() const;
    [[nodiscard]] uint16_t port() const { return m_server->port(); }
    /// Sends bytes as they are within TLS, and reads until the server closes.
    [[nodiscard]] QByteArray exchangeEncrypted(const QByteArray& bytes) const;
    [[nodiscard]] QUrl streamUrl(const QString& token, bool encrypted = false) const;

private:
    QTemporaryDir m_folder;
    std::unique_ptr<server::Server> m_server;
};

struct HttpAnswer {
    int status = 0;
    QByteArray header;
    server::Json body;
};

/// A whole request after which the connection closes; `headers` as whole lines.
QByteArray requestBytes(const QByteArray& method, const QByteArray& target, const QByteArray& headers = {},
                        const QByteArray& body = {});
QByteArray bearer(const QString& token);
/// Sends bytes as they are, in the clear, and reads until the server closes.
QByteArray exchange(uint16_t port, const QByteArray& bytes);
/// True when an answer has come to its end, as its length says.
bool isComplete(const QByteArray& answer);
/// Asks for a stream.
QByteArray upgradeRequest(const QString& token);
HttpAnswer parseAnswer(const QByteArray& bytes);
HttpAnswer get(uint16_t port, const QByteArray& path, const QByteArray& headers = {});
HttpAnswer post(uint16_t port, const QByteArray& path, const QByteArray& body,
                const QByteArray& contentType = "application/json");

/// A streaming client that keeps what it receives.
class StreamClient {
public:
    StreamClient();
    explicit StreamClient(const TestServer& server) : StreamClient(server.streamUrl(server.token())) {}
    explicit StreamClient(const QUrl& url, const QSslConfiguration& tls = QSslConfiguration::defaultConfiguration());

    void send(const char* json) { socket.sendTextMessage(QString::fromUtf8(json)); }
    /// Awaits the connection and sends the start of a session.
    void start() {
        if (taken == 0)
            next("connected");
        send(R"({"type":"start_session","languages":["en"],"mode":"streaming","audio_format":"linear16",)"
             R"("sample_rate":16000,"channels":1,"enhanced_transcription":false,"client_version":"1"})");
    }
    void sendAudio(const QByteArray& samples);
    void sendAudio(int milliseconds) { sendAudio(QByteArray(milliseconds * 32, '\1')); }
    void end() { send(R"({"type":"end_session"})"); }
    /// Speaks in the session for so long, in pieces of 100 ms, ends it and returns what the server says of it.
    server::Json finish(int milliseconds);
    /// The next message of the type, after those taken before; throws, and so ends the test, when none comes.
    server::Json next(const std::string& type);
    /// The code of the next error.
    std::string nextError() { return next("error").value("code", ""); }
    [[nodiscard]] bool waitClosed();
    [[nodiscard]] int count(const std::string& type) const;

    QWebSocket socket;
    std::vector<server::Json> messages;
    size_t taken = 0;
    bool closed = false;
    QString error;
};

} // namespace quillo::test
