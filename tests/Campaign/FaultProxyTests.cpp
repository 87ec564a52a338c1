#include "FaultProxy.h"
#include "Support/Async.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <random>

using namespace quillo::test;
using Ending = FaultProxy::Ending;
using Traffic = FaultProxy::Traffic;

namespace {

/// Answers every byte with itself.
class EchoServer : public QTcpServer {
public:
    EchoServer() {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            auto* socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                const auto data = socket->readAll();
                received += data;
                socket->write(data);
            });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        });
    }
    QByteArray received;
};

class FaultProxyTest : public testing::Test {
protected:
    std::unique_ptr<QTcpSocket> open() {
        auto socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(QHostAddress::LocalHost, proxy.port());
        EXPECT_TRUE(waitUntil([&] { return socket->state() == QAbstractSocket::ConnectedState; }));
        return socket;
    }
    bool isEchoed(QTcpSocket& socket, const QByteArray& data) {
        socket.write(data);
        return waitUntil([&] { return socket.bytesAvailable() >= data.size(); }) && socket.readAll() == data;
    }
    static bool isEnded(const QTcpSocket& socket) {
        return waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; });
    }
    static QByteArray bytes(int count) {
        std::mt19937 generator(1);
        QByteArray data(count, 'x'); // the first byte distinguishes a WebSocket from TLS
        for (auto& byte : data)
            byte = static_cast<char>(generator());
        data[0] = 'G';
        return data;
    }

    EchoServer server;
    FaultProxy proxy{server.serverPort()};
};

TEST_F(FaultProxyTest, AConnectionIsCutAtTheByte) {
    for (const auto ending : {Ending::finish, Ending::reset}) {
        server.received.clear();
        const auto before = open();
        ASSERT_TRUE(isEchoed(*before, "GET "));
        proxy.set({.traffic = Traffic::plain, .bytes = 12'345, .ending = ending});
        before->write(bytes(50'000));
        EXPECT_TRUE(isEnded(*before));
        EXPECT_EQ(before->error(), QAbstractSocket::RemoteHostClosedError);
        if (ending == Ending::finish) { // a reset overtakes what is in the server's queue
            EXPECT_TRUE(waitUntil([&] { return server.received.size() >= 4 + 12'345; }));
        }
        EXPECT_LE(server.received.size(), 4 + 12'345);
        EXPECT_TRUE(isEchoed(*open(), bytes(20'000))) << "a trap closes once";
        proxy.set({.traffic = Traffic::tls, .bytes = 10, .ending = ending});
        EXPECT_TRUE(isEchoed(*open(), bytes(2'000))) << "not TLS";
        proxy.heal();
    }
    EXPECT_EQ(proxy.counts().trapped, 2);
}

TEST_F(FaultProxyTest, ATrapStallsWithoutClosing) {
    const auto socket = open();
    proxy.set({.traffic = Traffic::any, .bytes = 1'000});
    const auto data = bytes(5'000);
    socket->write(data);
    ASSERT_TRUE(waitUntil([&] { return proxy.counts().trapped == 1 && socket->bytesAvailable() == 0; }));
    EXPECT_TRUE(waitUntil([&] { return server.received.size() == 1'000; }));
    EXPECT_EQ(proxy.counts().bytesUp, 1'000);
    EXPECT_TRUE(isEchoed(*open(), "another connection flows"));
    proxy.heal();
    EXPECT_TRUE(waitUntil([&] { return socket->bytesAvailable() == data.size(); }));
    EXPECT_EQ(socket->readAll(), data);
}

TEST_F(FaultProxyTest, EverythingStallsAndFlowsAgain) {
    const auto socket = open();
    ASSERT_TRUE(isEchoed(*socket, "before"));
    proxy.stall(true);
    socket->write("during");
    const auto late = open();
    late->write("late");
    ASSERT_TRUE(waitUntil([&] { return socket->bytesToWrite() == 0 && late->bytesToWrite() == 0; }));
    EXPECT_EQ(proxy.counts().bytesUp, 6);
    proxy.stall(false);
    EXPECT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 6 && late->bytesAvailable() == 4; }));

    proxy.stallAnswers(true);
    socket->write("unanswered");
    EXPECT_TRUE(waitUntil([&] { return server.received.endsWith("unanswered"); }));
    EXPECT_EQ(proxy.counts().bytesDown, 16);
    proxy.cut(Ending::reset);
    EXPECT_TRUE(isEnded(*socket));
    EXPECT_TRUE(isEnded(*late));
    EXPECT_EQ(socket->readAll(), "during") << "the answer was held back and went with the connection";
}

TEST_F(FaultProxyTest, RefusedConnectionsAreRefused) {
    const auto socket = open();
    ASSERT_TRUE(isEchoed(*socket, "taken"));
    proxy.refuse(true);
    QTcpSocket refused;
    refused.connectToHost(QHostAddress::LocalHost, proxy.port());
    EXPECT_TRUE(waitUntil([&] { return refused.error() == QAbstractSocket::ConnectionRefusedError; }));
    EXPECT_TRUE(isEchoed(*socket, "open ones stay"));
    proxy.heal();
    EXPECT_TRUE(isEchoed(*open(), "at the same port"));
}

} // namespace
