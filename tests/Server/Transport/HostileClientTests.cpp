#include "ServerFixture.h"

#include <QTcpSocket>
#include <QTimer>

using namespace quillo::test;
using quillo::server::ServerOptions;
using namespace std::chrono_literals;

namespace {

QByteArray upgradeRequest(const QString& token) {
    return "GET /ws/v3/transcribe?token=" + token.toUtf8() +
           " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}

/// A text frame of a client, masked with zeros (RFC 6455 section 5.2).
QByteArray frame(const QByteArray& payload) {
    QByteArray bytes("\x81", 1);
    if (payload.size() < 126) {
        bytes.append(static_cast<char>(0x80 | payload.size()));
    } else {
        bytes.append(static_cast<char>(0x80 | 126));
        bytes.append(static_cast<char>(payload.size() >> 8));
        bytes.append(static_cast<char>(payload.size() & 0xff));
    }
    return bytes + QByteArray(4, '\0') + payload;
}

/// The server still serves a well-behaved client.
void expectServes(const TestServer& server) {
    StreamClient client(server);
    client.next("connected");
    client.start();
    client.sendAudio(1000);
    client.send(R"({"type":"end_session"})");
    EXPECT_EQ(client.next("session_ended")["duration_ms"], 1000);
}

struct HostileBytes {
    const char* name;
    QByteArray bytes;
};

TEST(ServerHostileClients, NoBytesKeepAConnectionBeyondItsTime) {
    ServerOptions options;
    options.requestTimeout = 150ms;
    options.keepAliveTimeout = 150ms;
    TestServer server(nullptr, options);
    const HostileBytes cases[] = {
        {"nothing", {}},
        {"half a request", "POST /auth/anonymous HTTP/1.1\r\nHost: localhost\r\nContent-Le"},
        {"half a body", "POST /auth/anonymous HTTP/1.1\r\nHost: localhost\r\nContent-Type: "
                        "application/json\r\nContent-Length: 10\r\n\r\n{"},
        {"a TLS record that never comes", QByteArray("\x16\x03\x01\x02\x00", 5)},
        {"garbage TLS", QByteArray("\x16\x03\x01\x00\x05garbage", 12)},
        {"a finished request", "GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n"},
    };
    for (const auto& [name, bytes] : cases) {
        exchange(server->port(), bytes);
        EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; })) << name;
    }
    expectServes(server);
}

TEST(ServerHostileClients, ASlowHeaderGainsNoTimeWithEachByte) {
    ServerOptions options;
    options.requestTimeout = 300ms;
    TestServer server(nullptr, options);
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), server->port());
    socket.write("GET /health HTTP/1.1\r\nX: ");
    QTimer drip;
    QObject::connect(&drip, &QTimer::timeout, &drip, [&] { socket.write("x"); });
    drip.start(20);
    EXPECT_TRUE(waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; }, 5s));
}

TEST(ServerHostileClients, AbruptEndsAtEveryStepLeaveNothingBehind) {
    TestServer server;
    const QString token = server.token();
    const QByteArray upgrade = upgradeRequest(token);
    const QByteArray start = frame(R"({"type":"start_session"})");
    const QByteArray audio = frame(R"({"type":"audio_chunk","data":")" + QByteArray(3200, 1).toBase64() + "\"}");
    const QByteArray end = frame(R"({"type":"end_session"})");
    for (const QByteArray& afterUpgrade : std::initializer_list<QByteArray>{
             QByteArray(), start.left(3), start, start + audio.left(100), start + audio, start + audio + audio + end}) {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), server->port());
        socket.write(upgrade);
        ASSERT_TRUE(waitUntil([&] { return socket.bytesAvailable() > 0; }));
        socket.write(afterUpgrade);
        ASSERT_TRUE(waitUntil([&] { return socket.bytesToWrite() == 0; }));
        socket.abort();
        EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0 && server->sessionCount() == 0; }));
    }
    expectServes(server);
}

TEST(ServerHostileClients, OneThatNeverReadsIsCutAndOthersGoOn) {
    ServerOptions options;
    options.maxQueuedBytes = size_t{16} * 1024;
    const TestServer constServer(nullptr, options);
    auto& server = const_cast<TestServer&>(constServer);
    QTcpSocket socket;
    // Read nothing beyond this: the rest stays in the kernel until its buffers are full.
    socket.setReadBufferSize(512);
    socket.connectToHost(QStringLiteral("127.0.0.1"), server->port());
    socket.write(upgradeRequest(server.token()));
    ASSERT_TRUE(waitUntil([&] { return socket.bytesAvailable() > 0; }));
    StreamClient other(server);
    other.next("connected");
    other.start();
    // Each of these is answered by an error message.
    const QByteArray bad = frame("{}");
    QByteArray block;
    for (int i = 0; i < 2000; ++i)
        block += bad;
    EXPECT_TRUE(waitUntil(
        [&] {
            if (socket.state() == QAbstractSocket::ConnectedState && socket.bytesToWrite() < 1'000'000)
                socket.write(block);
            return server->sessionCount() == 1;
        },
        60s));
    other.sendAudio(500);
    other.send(R"({"type":"end_session"})");
    EXPECT_EQ(other.next("session_ended")["duration_ms"], 500);
}

TEST(ServerHostileClients, BrokenFramingEndsThatConnectionAlone) {
    TestServer server;
    const QString token = server.token();
    for (const QByteArray& bytes : {QByteArray("\x81\x05hello", 7), QByteArray("\xf1\x80\0\0\0\0", 6),
                                    QByteArray("\x89\xfe\x01\x00\0\0\0\0", 8), QByteArray(1000, '\xff')}) {
        const auto answer = [&] {
            QTcpSocket socket;
            socket.connectToHost(QStringLiteral("127.0.0.1"), server->port());
            socket.write(upgradeRequest(token));
            EXPECT_TRUE(waitUntil([&] { return socket.bytesAvailable() > 0; }));
            socket.write(bytes);
            EXPECT_TRUE(waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; }));
            return socket.readAll();
        }();
        EXPECT_TRUE(answer.startsWith("HTTP/1.1 101"));
    }
    EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));
    expectServes(server);
}

} // namespace
