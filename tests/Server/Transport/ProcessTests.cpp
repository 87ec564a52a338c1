#include "ServerProcess.h"

#include <QFile>
#include <QTcpServer>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace quillo::test;
using quillo::server::Json;

namespace {

class ServerProcesses : public testing::Test {
protected:
    QTemporaryDir folder;
    ServerProcess server{folder.filePath(QStringLiteral("data"))};
};

TEST_F(ServerProcesses, SignalsEndItInOrder) {
    for (const int signal : {SIGTERM, SIGINT}) {
        server.start({QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")});
        const auto signedIn = post(server.port, "/auth/anonymous", R"({"device_id":"d"})");
        StreamClient client(
            QUrl(QStringLiteral("ws://127.0.0.1:%1/ws/v3/transcribe?token=%2")
                     .arg(server.port)
                     .arg(QString::fromStdString(signedIn.body["tokens"]["access_token"].get<std::string>()))));
        client.next("connected");
        ::kill(static_cast<pid_t>(server.process.processId()), signal);
        EXPECT_TRUE(client.waitClosed());
        EXPECT_EQ(client.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
        ASSERT_TRUE(server.finished());
        EXPECT_EQ(server.process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(server.process.exitCode(), 0);
        const auto log = server.process.readAllStandardError();
        EXPECT_FALSE(log.contains(signedIn.body["tokens"]["access_token"].get<std::string>().c_str()));
    }
}

TEST_F(ServerProcesses, ARestartedServerKeepsThePortAndTheUsersOnAnInheritedSocket) {
    QTcpServer held;
    ASSERT_TRUE(held.listen(QHostAddress::LocalHost));
    const int descriptor = static_cast<int>(held.socketDescriptor());
    server.process.setChildProcessModifier([descriptor] { ::dup2(descriptor, 7); });
    std::string user;
    for (int round = 0; round < 2; ++round) {
        server.start({QStringLiteral("--listen"), QStringLiteral("fd:7"), QStringLiteral("--exit-with-parent")});
        EXPECT_EQ(server.port, held.serverPort());
        // Qt would accept connections itself as soon as its event loop runs.
        held.pauseAccepting();
        const auto answer = post(server.port, "/auth/anonymous", R"({"device_id":"d"})");
        ASSERT_EQ(answer.status, 200);
        if (round == 0)
            user = answer.body["user"]["id"];
        EXPECT_EQ(answer.body["user"]["id"], user);
        server.process.kill();
        ASSERT_TRUE(server.finished());
    }
}

TEST_F(ServerProcesses, TakesTheSocketOfTheServiceManager) {
    const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::listen(listening, 5), 0);
    server.process.setChildProcessModifier([listening] {
        ::dup2(listening, 3);
        ::setenv("LISTEN_FDS", "1", 1);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    });
    server.start({});
    EXPECT_EQ(get(server.port, "/health").status, 200);
    ::close(listening);
}

TEST_F(ServerProcesses, ASecondServerLeavesTheFolderToTheFirst) {
    server.start({QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")});
    {
        // An upload that is under way.
        QFile file(server.data + QStringLiteral("/uploads/half.audio"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    QProcess second;
    second.start(qEnvironmentVariable("QUILLO_SERVER"),
                 {QStringLiteral("--recogniser=scripted"), QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                  QStringLiteral("--data"), server.data});
    ASSERT_TRUE(waitUntil([&] { return second.state() == QProcess::NotRunning; }));
    EXPECT_EQ(second.exitCode(), 3);
    const auto said = second.readAllStandardError();
    for (const auto& part : {QByteArray::number(server.process.processId()), QByteArray::number(server.port),
                             QByteArray("--data"), QByteArray("QUILLO_SERVER_HOST")})
        EXPECT_TRUE(said.contains(part)) << said.data();
    EXPECT_TRUE(QFile::exists(server.data + QStringLiteral("/uploads/half.audio")));
    // A killed server leaves no lock behind.
    server.process.kill();
    ASSERT_TRUE(server.finished());
    server.start({QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")});
    EXPECT_EQ(get(server.port, "/health").status, 200);
}

struct Refusal {
    QStringList arguments;
    int exitCode;
    const char* text;
};

TEST_F(ServerProcesses, WrongOptionsAreNamedWithTheNextStep) {
    QTcpServer taken;
    ASSERT_TRUE(taken.listen(QHostAddress::LocalHost));
    const QString takenAddress = QStringLiteral("127.0.0.1:%1").arg(taken.serverPort());
    const QString nowhere = folder.filePath(QStringLiteral("none.json"));
    const auto q = [](const char* text) { return QString::fromLatin1(text); };
    const Refusal cases[] = {
        {{q("--colour")}, 2, "--colour"},
        {{q("--threads"), q("many")}, 2, "--threads"},
        {{q("--max-sessions=0")}, 2, "--max-sessions"},
        {{q("--recogniser"), q("magic")}, 2, "pocketsphinx"},
        {{q("--recogniser"), q("http")}, 2, "--recogniser-url"},
        {{q("--listen")}, 2, "ADDRESS:PORT"},
        {{q("--certificate"), nowhere}, 2, "--key"},
        {{q("--recogniser=scripted"), q("--certificate"), nowhere, q("--key"), nowhere, q("--listen=127.0.0.1:0")},
         1,
         "none.json"},
        {{q("--trust-proxy"), q("proxy.example")}, 2, "127.0.0.1"},
        {{q("--registration=maybe")}, 2, "open or closed"},
        {{q("--recogniser-prompt"), q("Quillo")}, 2, "--recogniser http"},
        {{q("--recogniser-path=inference")}, 2, "begins with /"},
        {{q("--recogniser-timeout"), q("0")}, 2, "--recogniser-timeout"},
        {{q("--recogniser=http"), q("--recogniser-url=https://h"), q("--recogniser-authority"), nowhere},
         1,
         "none.json"},
        {{q("--recogniser=scripted"), q("--script"), nowhere}, 1, "none.json"},
        {{q("--recogniser=scripted"), q("--listen"), q("nonsense")}, 1, "127.0.0.1:48650"},
        {{q("--recogniser=scripted"), q("--listen"), q("fd:0")}, 1, "listening"},
        {{q("--recogniser=scripted"), q("--listen"), takenAddress}, 1, "--listen"},
    };
    for (const auto& [arguments, exitCode, text] : cases) {
        QProcess process;
        process.start(qEnvironmentVariable("QUILLO_SERVER"), arguments + QStringList{q("--data"), server.data});
        ASSERT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
        EXPECT_EQ(process.exitCode(), exitCode) << text;
        EXPECT_TRUE(process.readAllStandardError().contains(text)) << text;
    }
}

} // namespace
