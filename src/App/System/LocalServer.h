#pragma once

#include "Concurrency/Clock.h"

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

namespace quillo {

/// The companion server, started by the application on a loopback port.
///
/// The application binds the port and passes the listening socket on, so that the address is known before the server
/// runs, connections made while it starts wait in the socket's queue, and a restarted server keeps its address. Main
/// thread.
class LocalServer final : public QObject {
    Q_OBJECT
public:
    /// Binds the port; throws std::system_error when the machine gives none. Nothing runs yet. Where the user runs a
    /// server on the same data folder already, that one is used as long as it runs: a folder has one server.
    explicit LocalServer(Clock& clock);
    ~LocalServer() override;

    /// "127.0.0.1:PORT". The port changes only when the user starts their own server again at another one.
    [[nodiscard]] QString host() const { return m_host; }

    /// Starts the program and keeps it running. Its messages go to `logFile`; "QUILLO_SERVER_OPTIONS" adds options.
    void start(const QString& program, const QString& logFile);
    void stop();

    /// The path of the program: beside the application, otherwise on the PATH; empty when it is not installed.
    static QString findProgram();

private:
    void launch();
    void handleFinished(int exitCode, QProcess::ExitStatus status);
    void giveUpTheFolder();
    /// Waits for the end of the server that is used instead of our own.
    void lookLater();
    /// Takes over the address of the user's server when it has changed.
    void follow(const QString& running);
    /// Binds its address; false while that is not possible.
    bool replaceEndedServer();

    Clock& m_clock;
    int m_socket = -1;
    QString m_host;
    QString m_program;
    QString m_logFile;
    std::unique_ptr<QProcess> m_process;
    Clock::TimerHandle m_restart;
    Clock::Instant m_startedAt{};
    int m_failures = 0;
    bool m_wanted = false;
    bool m_wasMissing = false; ///< the server that is used instead of our own, at the last look
};

} // namespace quillo
