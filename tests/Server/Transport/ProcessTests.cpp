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
    ServerProcess server{folder.filePath(u"data"_qs)};
};

TEST_F(ServerProcesses, SignalsEndItInOrder) {
    for (const int signal : {SIGTERM, SIGINT}) {
        server.start();
        const auto token = server.signIn();
        const auto url = u"ws://127.0.0.1:%1/ws/v3/transcribe?token=%2"_qs.arg(server.port).arg(token);
        StreamClient client((QUrl(url)));
        client.next("connected");
        ::kill(static_cast<pid_t>(server.process.processId()), signal);
        EXPECT_TRUE(client.waitClosed());
        EXPECT_EQ(client.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
        ASSERT_TRUE(server.finished());
        EXPECT_EQ(server.process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(server.process.exitCode(), 0);
        EXPECT_FALSE(server.process.readAllStandardError().contains(token.toLatin1()));
    }
}

TEST_F(ServerProcesses, ARestartedServerKeepsThePortAndTheUsersOnAnInheritedSocket) {
    QTcpServer held;
    ASSERT_TRUE(held.listen(QHostAddress::LocalHost));
    const int descriptor = static_cast<int>(held.socketDescriptor());
    server.process.setChildProcessModifier([descriptor] { ::dup2(descriptor, 7); });
    std::string user;
    for (int round = 0; round < 2; ++round) {
        server.start(u"--listen fd:7 --exit-with-parent"_qs);
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
    server.start();
    {
        // An upload that is under way.
        QFile file(server.data + u"/uploads/half.audio"_qs);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    const auto second =
        runServer(words(u"--recogniser=scripted --script /nonexistent --listen 127.0.0.1:0 --data "_qs + server.data));
    EXPECT_EQ(second.code, 3) << "it must look at the folder before it makes its recogniser";
    for (const auto& part : {QByteArray::number(server.process.processId()), QByteArray::number(server.port),
                             QByteArray("--data"), QByteArray("QUILLO_SERVER_HOST")})
        EXPECT_TRUE(second.errors.contains(part)) << second.errors.data();
    EXPECT_TRUE(QFile::exists(server.data + u"/uploads/half.audio"_qs));
    // A killed server leaves no lock behind.
    server.process.kill();
    ASSERT_TRUE(server.finished());
    server.start();
    EXPECT_EQ(get(server.port, "/health").status, 200);
}

TEST_F(ServerProcesses, SaysWhichLanguagesItUnderstands) {
    const std::pair<QString, Json> cases[] = {
        {u"--recogniser=pocketsphinx"_qs, Json::array({"en"})},
        {u"--recogniser=http --recogniser-url=http://localhost:9 --recogniser-languages=en,de"_qs,
         Json::array({"en", "de"})},
        {u"--recogniser=http --recogniser-url=http://localhost:9"_qs, Json()},
    };
    for (const auto& [options, languages] : cases) {
        server.start(u"--listen 127.0.0.1:0 "_qs + options);
        EXPECT_EQ(get(server.port, "/health").body.value("languages", Json()), languages);
        server.process.kill();
        ASSERT_TRUE(server.finished());
    }
}

struct Refusal {
    QString options;
    int code;
    const char* text;
};

TEST_F(ServerProcesses, WrongOptionsAreNamedWithTheNextStep) {
    QTcpServer taken;
    ASSERT_TRUE(taken.listen(QHostAddress::LocalHost));
    const Refusal cases[] = {
        {u"--colour"_qs, 2, "--colour"},
        {u"--threads many"_qs, 2, "--threads"},
        {u"--max-sessions=0"_qs, 2, "--max-sessions"},
        {u"--recogniser-languages English"_qs, 2, "en,de"},
        {u"--recogniser-languages en"_qs, 2, "--recogniser http"},
        {u"--recogniser magic"_qs, 2, "pocketsphinx"},
        {u"--recogniser http"_qs, 2, "--recogniser-url"},
        {u"--listen"_qs, 2, "ADDRESS:PORT"},
        {u"--certificate /none.pem"_qs, 2, "--key"},
        {u"--recogniser=scripted --listen=127.0.0.1:0 --certificate /none.pem --key /none.pem"_qs, 1, "none.pem"},
        {u"--trust-proxy proxy.example"_qs, 2, "127.0.0.1"},
        {u"--registration=maybe"_qs, 2, "open or closed"},
        {u"--recogniser-prompt Quillo"_qs, 2, "--recogniser http"},
        {u"--recogniser-path=inference"_qs, 2, "begins with /"},
        {u"--recogniser-timeout 0"_qs, 2, "--recogniser-timeout"},
        {u"--recogniser=http --recogniser-url=https://h --recogniser-authority /none.pem"_qs, 1, "none.pem"},
        {u"--recogniser=scripted --script /none.json"_qs, 1, "none.json"},
        {u"--recogniser=scripted --listen nonsense"_qs, 1, "127.0.0.1:48650"},
        {u"--recogniser=scripted --listen fd:0"_qs, 1, "listening"},
        {u"--recogniser=scripted --listen 127.0.0.1:%1"_qs.arg(taken.serverPort()), 1, "--listen"},
    };
    for (const auto& [options, code, text] : cases) {
        const auto outcome = runServer(words(options) + QStringList{u"--data"_qs, server.data});
        EXPECT_EQ(outcome.code, code) << text;
        EXPECT_TRUE(outcome.errors.contains(text)) << text << " in " << outcome.errors.data();
    }
}

} // namespace
