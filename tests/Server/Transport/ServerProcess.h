#pragma once

#include "ServerFixture.h"

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

    void start(QStringList arguments) {
        process.setArguments(
            QStringList{QStringLiteral("--recogniser"), QStringLiteral("scripted"), QStringLiteral("--data"), data} +
            arguments);
        process.start();
        EXPECT_TRUE(waitUntil([&] { return process.canReadLine() || process.state() == QProcess::NotRunning; }));
        line = process.readLine();
        EXPECT_TRUE(line.startsWith("quillo-server ready on ")) << process.readAllStandardError().data();
        port = static_cast<uint16_t>(line.trimmed().split(':').last().toUInt());
    }

    bool finished() {
        return waitUntil([&] { return process.state() == QProcess::NotRunning; });
    }

    QProcess process;
    QString data;
    QByteArray line;
    uint16_t port = 0;
};

} // namespace quillo::test
