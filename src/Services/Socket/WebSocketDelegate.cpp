#include "Services/Socket/WebSocketDelegate.h"

#include "Services/Socket/WebSocketServiceState.h"

#include <QStringBuilder>
#include <QUrlQuery>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level) { logFromMain(message, level, QStringLiteral("WebSocketDelegate")); }

} // namespace

QString redactedAddress(const QUrl& url) {
    if (!url.hasQuery())
        return url.toString(QUrl::RemoveUserInfo);
    QUrlQuery query(url);
    if (query.hasQueryItem(QStringLiteral("token"))) {
        query.removeAllQueryItems(QStringLiteral("token"));
        query.addQueryItem(QStringLiteral("token"), QStringLiteral("<redacted>"));
    }
    return url.toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment) % u'?' %
           query.toString(QUrl::FullyDecoded);
}

void WebSocketDelegate::opened(const QString& protocol) const {
    log(QStringLiteral("[WebSocketDelegate] ✅ WebSocket opened with protocol: ") %
            (protocol.isEmpty() ? QStringLiteral("none") : protocol),
        LogLevel::info);
}

void WebSocketDelegate::closed(QWebSocketProtocol::CloseCode code, const QString& reason) const {
    log(QStringLiteral("[WebSocketDelegate] 🔴 WebSocket closed with code: %1, reason: %2").arg(code).arg(reason),
        LogLevel::info);
}

void WebSocketDelegate::completed() const {
    log(QStringLiteral("[WebSocketDelegate] ✅ Task completed successfully"), LogLevel::info);
}

void WebSocketDelegate::failed(const QString& text, const QString& details, int code) const {
    log(QStringLiteral("[WebSocketDelegate] ❌ Task completed with error: ") % text, LogLevel::error);
    log(QStringLiteral("❌ Error details: ") % details, LogLevel::error);
    log(QStringLiteral("❌ URLError code: %1").arg(code), LogLevel::error);
    log(QStringLiteral("❌ URLError failingURL: ") % m_address, LogLevel::error);
}

void WebSocketDelegate::challenged(const QString& method) const {
    log(QStringLiteral("[WebSocketDelegate] 🔐 Received authentication challenge: ") % method, LogLevel::info);
}

} // namespace quillo
