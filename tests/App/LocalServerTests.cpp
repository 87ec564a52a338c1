// The server on this machine: our own, or one that the user runs on the same folder.

#include "App/System/ServerChoice.h"
#include "Support/Async.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <optional>
#include <sys/file.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

QString dataFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/quillo/server"_qs;
}

/// Whether a server answers at `host`.
bool answers(const QString& host) {
    QTcpSocket socket;
    socket.connectToHost(host.section(u':', 0, 0), static_cast<quint16>(host.section(u':', 1).toUInt()));
    socket.write("GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    return waitUntil([&] { return socket.peek(1000).contains("\"recogniser\""); });
}

TEST(LocalServerTest, UsesOnlyAServerThatServesThisAddress) {
    ASSERT_TRUE(QDir().mkpath(dataFolder()));
    QFile lock(dataFolder() + u"/server.lock"_qs);
    ASSERT_TRUE(lock.open(QIODevice::ReadWrite | QIODevice::Truncate));
    ASSERT_EQ(::flock(lock.handle(), LOCK_EX), 0);
    ManualClock clock(EventExecutor::main());
    const std::pair<QByteArray, bool> cases[] = {
        {"1 127.0.0.1:48650\n", true},
        {"1 0.0.0.0:48650\n", true},
        {"1 [::]:48650\n", true},
        {"1 192.168.1.5:48650\n", false},
        {"1 127.0.0.1:48650 own-user\n", false},
        {"1 0.0.0.0:48650 own-certificate\n", false},
        {"", false},
    };
    for (const auto& [content, isUsed] : cases) {
        lock.resize(0);
        lock.seek(0);
        lock.write(content);
        lock.flush();
        EXPECT_EQ(LocalServer(clock).host() == u"127.0.0.1:48650", isUsed) << content.data();
    }
    lock.remove();
}

/// A server that the user runs on the folder, on a free port.
class UsersServer {
public:
    UsersServer() {
        m_process.start(qEnvironmentVariable("QUILLO_SERVER"),
                        {u"--recogniser=scripted"_qs, u"--listen=127.0.0.1:0"_qs});
        if (waitUntil([this] { return m_process.canReadLine(); }))
            host = QString::fromUtf8(m_process.readLine().trimmed().split(' ').last());
    }
    ~UsersServer() {
        m_process.kill();
        waitUntil([this] { return m_process.state() == QProcess::NotRunning; });
    }
    UsersServer(const UsersServer&) = delete;
    UsersServer& operator=(const UsersServer&) = delete;

    QString host;

private:
    QProcess m_process;
};

TEST(LocalServerTest, ReplacesAUsersServerThatEnds) {
    qputenv("QUILLO_SERVER_OPTIONS", "--recogniser scripted");
    std::optional<UsersServer> users(std::in_place);
    ManualClock clock(EventExecutor::main());
    LocalServer server(clock);
    ASSERT_EQ(server.host(), users->host) << "another one would be started";
    server.start(qEnvironmentVariable("QUILLO_SERVER"), dataFolder() + u"/../server.log"_qs);
    clock.advance(10s);
    EXPECT_TRUE(answers(server.host()));
    users.reset();
    clock.advance(3s); // it may just be restarting
    clock.advance(3s);
    EXPECT_TRUE(answers(server.host()));
    server.stop();
    qunsetenv("QUILLO_SERVER_OPTIONS");
}

TEST(LocalServerTest, FollowsAUsersServerToAnotherPort) {
    const auto mocks = qgetenv("USE_MOCK_SERVICES");
    qunsetenv("USE_MOCK_SERVICES");
    qputenv("PATH", QFileInfo(qEnvironmentVariable("QUILLO_SERVER")).path().toUtf8() + ':' + qgetenv("PATH"));
    std::optional<UsersServer> users(std::in_place);
    ManualClock clock(EventExecutor::main());
    ServerChoice choice(clock);
    const QUrl elsewhere(u"https://example.org/health"_qs);
    choice.start();
    for (int moves = 0; moves < 2; ++moves) {
        EXPECT_EQ(choice.host(), users->host);
        EXPECT_EQ(choice.current(choice.environment().authBaseURL()).authority(), users->host);
        EXPECT_EQ(choice.current(elsewhere), elsewhere);
        users.reset();
        users.emplace();
        clock.advance(3s);
    }
    EXPECT_EQ(choice.host(), users->host);
    if (!mocks.isEmpty())
        qputenv("USE_MOCK_SERVICES", mocks);
}

} // namespace
