#pragma once

#include "ServerFixture.h"
#include "Support/CommandLine.h"

#include <QProcess>

namespace quillo::test {

/// The server as a process of its own.
class ServerProcess {
public:
    explicit ServerProcess(const QString& dataFolder) : data(dataFolder) {
        process.setProgram(qEnvironmentVariable("QUILLO_SERVER"));
    }
    ~ServerProcess() {
        process.kill();
        process.waitForFinished();
    }

    void start(const QString& options = u"--listen 127.0.0.1:0"_qs) {
        process.setArguments(words(u"--recogniser scripted --data %1 "_qs.arg(data) + options));
        process.start();
        EXPECT_TRUE(waitUntil([&] { return process.canReadLine() || process.state() == QProcess::NotRunning; }));
        line = process.readLine();
        EXPECT_TRUE(line.startsWith("quillo-server ready on ")) << process.readAllStandardError().data();
        port = static_cast<uint16_t>(line.trimmed().split(':').last().toUInt());
    }

    /// An access token of a new anonymous user.
    [[nodiscard]] QString signIn() const {
        const auto answer = post(port, "/auth/anonymous", R"({"device_id":"d"})");
        return QString::fromStdString(answer.body["tokens"]["access_token"].get<std::string>());
    }

    bool finished() {
        return waitUntil([&] { return process.state() == QProcess::NotRunning; });
    }

    QProcess process;
    QString data;
    QByteArray line;
    uint16_t port = 0;
};

struct Outcome {
    int code = -1;
    QByteArray output;
    QByteArray errors;
};

/// Runs the server's program to its end.
inline Outcome runServer(const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.start(qEnvironmentVariable("QUILLO_SERVER"), arguments);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

} // namespace quillo::test
