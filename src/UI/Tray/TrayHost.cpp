#include "UI/Tray/TrayHost.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include <utility>

namespace quillo {

namespace {

const QString service = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString path = QStringLiteral("/StatusNotifierWatcher");

} // namespace

TrayHost::TrayHost(const WindowHints& hints)
    : m_hints(hints), m_watcher(service, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForRegistration) {
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] { askWatcher(); });
    // The watcher may exist before the panel that shows the icons.
    QDBusConnection::sessionBus().connect(service, path, service, QStringLiteral("StatusNotifierHostRegistered"), this,
                                          SLOT(askWatcher()));
}

void TrayHost::watch() {
    if (m_told)
        Q_EMIT available();
    else if (!std::exchange(m_isWatching, true) || !QDBusConnection::sessionBus().isConnected())
        askWatcher();
}

void TrayHost::askWatcher() {
    if (m_told)
        return;
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return settle(m_hints.hasSystemTray());
    auto question = QDBusMessage::createMethodCall(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                   QStringLiteral("Get"));
    question.setAutoStartService(false);
    question << service << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* reply = new QDBusPendingCallWatcher(bus.asyncCall(question, 2000), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply] {
        reply->deleteLater();
        const QDBusPendingReply<QDBusVariant> answer(*reply);
        settle((answer.isValid() && answer.value().variant().toBool()) || m_hints.hasSystemTray());
    });
}

void TrayHost::settle(bool found) {
    if (m_told)
        return;
    m_told = found;
    if (found)
        Q_EMIT available();
    else
        Q_EMIT unavailable();
}

} // namespace quillo
