#include "ServerFixture.h"

#include <QTcpSocket>
#include <QTimer>

using namespace quillo::test;
using quillo::server::ServerOptions;
using namespace std::chrono_literals;

namespace {

/// A connection whose bytes the test writes itself.
struct RawClient : QTcpSocket {
    explicit RawClient(const TestServer& server) { connectToHost(QHostAddress::LocalHost, server.port()); }
    /// With the stream of `token` open.
    RawClient(const TestServer& server, const QString& token) : RawClient(server) {
        write(upgradeRequest(token));
        EXPECT_TRUE(waitUntil([this] { return bytesAvailable() > 0; }));
    }
    bool isCut() {
        return waitUntil([this] { return state() == UnconnectedState; });
    }
};

/// A text frame of a client, masked with zeros (RFC 6455 section 5.2).
QByteArray frame(const QByteArray& payload) {
    QByteArray bytes("\x81", 1);
    if (payload.size() < 126)
        bytes.append(static_cast<char>(0x80 | payload.size()));
    else
        bytes.append('\xfe').append(static_cast<char>(payload.size() >> 8)).append(static_cast<char>(payload.size()));
    return bytes + QByteArray(4, '\0') + payload;
}

/// The server still serves a well-behaved client.
void expectServes(const TestServer& server) {
    StreamClient client(server);
    client.start();
    EXPECT_EQ(client.finish(1000)["duration_ms"], 1000);
}

struct HostileBytes {
    const char* name;
    QByteArray bytes;
};

TEST(ServerHostileClients, NoBytesKeepAConnectionBeyondItsTime) {
    TestServer server(nullptr, {.requestTimeout = 150ms, .keepAliveTimeout = 150ms});
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
        exchange(server.port(), bytes);
        EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; })) << name;
    }
    expectServes(server);
}

TEST(ServerHostileClients, ASlowHeaderGainsNoTimeWithEachByte) {
    TestServer server(nullptr, {.requestTimeout = 300ms});
    RawClient socket(server);
    socket.write("GET /health HTTP/1.1\r\nX: ");
    QTimer drip;
    QObject::connect(&drip, &QTimer::timeout, &drip, [&] { socket.write("x"); });
    drip.start(20);
    EXPECT_TRUE(socket.isCut());
}

TEST(ServerHostileClients, AbruptEndsAtEveryStepLeaveNothingBehind) {
    TestServer server;
    const QString token = server.token();
    const QByteArray start = frame(R"({"type":"start_session"})");
    const QByteArray audio = frame(R"({"type":"audio_chunk","data":")" + QByteArray(3200, 1).toBase64() + "\"}");
    const QByteArray end = frame(R"({"type":"end_session"})");
    for (const QByteArray& afterUpgrade : std::initializer_list<QByteArray>{
             QByteArray(), start.left(3), start, start + audio.left(100), start + audio, start + audio + audio + end}) {
        RawClient socket(server, token);
        socket.write(afterUpgrade);
        ASSERT_TRUE(waitUntil([&] { return socket.bytesToWrite() == 0; }));
        socket.abort();
        EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0 && server->sessionCount() == 0; }));
    }
    expectServes(server);
}

TEST(ServerHostileClients, OneThatNeverReadsIsCutAndOthersGoOn) {
    TestServer server(nullptr, {.maxQueuedBytes = size_t{16} * 1024});
    RawClient socket(server, server.token());
    // Read nothing more: the rest stays in the kernel until its buffers are full.
    socket.setReadBufferSize(512);
    StreamClient other(server);
    other.start();
    // Each of these is answered by an error message.
    const QByteArray block = frame("{}").repeated(2000);
    EXPECT_TRUE(waitUntil(
        [&] {
            if (socket.state() == QAbstractSocket::ConnectedState && socket.bytesToWrite() < 1'000'000)
                socket.write(block);
            return server->sessionCount() == 1;
        },
        60s));
    EXPECT_EQ(other.finish(500)["duration_ms"], 500);
}

TEST(ServerHostileClients, BrokenFramingEndsThatConnectionAlone) {
    TestServer server;
    const QString token = server.token();
    for (const QByteArray& bytes : {QByteArray("\x81\x05hello", 7), QByteArray("\xf1\x80\0\0\0\0", 6),
                                    QByteArray("\x89\xfe\x01\x00\0\0\0\0", 8), QByteArray(1000, '\xff')}) {
        RawClient socket(server, token);
        EXPECT_TRUE(socket.peek(12).startsWith("HTTP/1.1 101"));
        socket.write(bytes);
        EXPECT_TRUE(socket.isCut());
    }
    EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));
    expectServes(server);
}

} // namespace
