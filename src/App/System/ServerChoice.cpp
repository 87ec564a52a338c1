#include "App/System/ServerChoice.h"

#include "App/System/ServiceContainer.h"
#include "Core/Log.h"
#include "Core/LoggingService.h"
#include "Core/UserError.h"

#include <QFileInfo>

#include <system_error>

namespace quillo {

namespace {

/// An address without a server (the discard port, unused today): recordings wait in the queue.
const QString unservedHost = QStringLiteral("127.0.0.1:9");

/// Throws UserError when the variable names no host.
ServerEnvironment fromEnvironment() {
    try {
        return ServerEnvironment::fromEnvironment(QStringLiteral("localhost"));
    } catch (const std::invalid_argument& fault) {
        appLog(QString::fromUtf8(fault.what()), LogLevel::error, QStringLiteral("App"));
        throw UserError({QStringLiteral("start.serverHost"), {qEnvironmentVariable("QUILLO_SERVER_HOST")}});
    }
}

} // namespace

ServerChoice::ServerChoice(Clock& clock) { m_environment = choose(clock); }

ServerEnvironment ServerChoice::choose(Clock& clock) {
    // The mock services need no server.
    if (ServerEnvironment::isHostSet() || ServiceContainer::usesMockServices())
        return fromEnvironment();
    if (LocalServer::findProgram().isEmpty()) {
        m_problem = UserMessage{QStringLiteral("start.noServerInstalled")};
        return ServerEnvironment::fromEnvironment(unservedHost);
    }
    try {
        m_localServer = std::make_unique<LocalServer>(clock);
    } catch (const std::system_error& error) {
        m_problem = UserMessage{QStringLiteral("start.localServerFailed"), {QString::fromUtf8(error.what())}};
        return ServerEnvironment::fromEnvironment(unservedHost);
    }
    return ServerEnvironment::fromEnvironment(m_localServer->host());
}

QString ServerChoice::host() const { return m_localServer ? m_localServer->host() : m_environment->host(); }

QUrl ServerChoice::current(QUrl url) const {
    if (m_localServer && url.authority() == m_environment->host())
        url.setAuthority(m_localServer->host());
    return url;
}

void ServerChoice::start() {
    if (m_localServer)
        m_localServer->start(LocalServer::findProgram(),
                             QFileInfo(LoggingService::defaultPath()).path() + QStringLiteral("/quillo-server.log"));
}

} // namespace quillo
