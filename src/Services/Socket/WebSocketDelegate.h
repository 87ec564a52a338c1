#pragma once

#include <QAbstractSocket>
#include <QString>
#include <QUrl>
#include <QWebSocketProtocol>

namespace quillo {

/// `url` for a log line: without the token.
QString redactedAddress(const QUrl& url);

/// Logs the events of a socket and does nothing else. Any thread.
class WebSocketDelegate {
public:
    explicit WebSocketDelegate(QString address) : m_address(std::move(address)) {}

    void opened(const QString& protocol) const;
    void closed(QWebSocketProtocol::CloseCode code, const QString& reason) const;
    void completed() const;
    void failed(const QString& text, const QString& details, int code) const;
    void challenged(const QString& method) const;

private:
    QString m_address;
};

} // namespace quillo
