#include "Services/Socket/WebSocketServiceProtocol.h"

#include <QStringBuilder>

namespace quillo {

namespace {

QString textOf(WebSocketError::Code code, const QString& reason) {
    using Code = WebSocketError::Code;
    switch (code) {
    case Code::connectionFailed:
        return QStringLiteral("Connection failed: ") % reason;
    case Code::receiveFailed:
        return QStringLiteral("Failed to receive message: ") % reason;
    case Code::serverError:
        return reason;
    case Code::invalidURL:
        return QStringLiteral("Invalid WebSocket URL");
    case Code::notConnected:
        return QStringLiteral("Not connected to server");
    case Code::notAuthenticated:
        return QStringLiteral("Not authenticated. Please sign in again.");
    case Code::connectionCancelled:
        return QStringLiteral("Connection cancelled");
    case Code::sessionStartFailed:
        return QStringLiteral("Failed to start transcription session");
    }
    return reason;
}

} // namespace

WebSocketError::WebSocketError(Code code, const QString& reason, int httpStatus)
    : std::runtime_error(textOf(code, reason).toStdString()), m_code(code), m_httpStatus(httpStatus) {}

} // namespace quillo
