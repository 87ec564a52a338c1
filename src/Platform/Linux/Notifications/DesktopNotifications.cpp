#include "Platform/Linux/Notifications/DesktopNotifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace quillo {

namespace {

/// "org.freedesktop.Notifications.Notify". We do not use the message of the tray icon, which needs a tray.
QDBusMessage notifyCall(const QString& text) {
    const auto service = QStringLiteral("org.freedesktop.Notifications");
    auto call = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"), service,
                                               QStringLiteral("Notify"));
    const auto name = QStringLiteral("Quillo");
    const uint replacesNothing = 0;
    const int desktopChoosesDuration = -1;
    call << name << replacesNothing << QStringLiteral("quillo") << name << text << QStringList()
         << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("org.quillo.Quillo")}}
         << desktopChoosesDuration;
    return call;
}

class DesktopNotifications final : public Notifications {
public:
    void show(const QString& text, Shown shown) override {
        auto* reply =
            new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(notifyCall(text)), &m_replies);
        QObject::connect(reply, &QDBusPendingCallWatcher::finished, reply, [reply, shown = std::move(shown)] {
            reply->deleteLater();
            const QDBusPendingReply<quint32> answer(*reply);
            if (shown)
                shown(answer.isError() ? answer.error().message() : QString());
        });
    }

private:
    QObject m_replies; ///< parent of the pending calls
};

} // namespace

std::unique_ptr<Notifications> createDesktopNotifications() {
    if (!QDBusConnection::sessionBus().isConnected())
        return nullptr;
    return std::make_unique<DesktopNotifications>();
}

} // namespace quillo
