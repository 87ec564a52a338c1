#include "UI/DesktopNotification.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

namespace quillo {

void notifyDesktop(const QString& text) {
    // Desktop Notifications Specification 1.2, "org.freedesktop.Notifications.Notify". The pop-up of a tray icon would
    // need a tray.
    const auto service = QStringLiteral("org.freedesktop.Notifications");
    auto call = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"), service,
                                               QStringLiteral("Notify"));
    const uint replacesNothing = 0;
    const int untilTheDesktopThinks = -1;
    call << QStringLiteral("Quillo") << replacesNothing << QStringLiteral("quillo") << QStringLiteral("Quillo") << text
         << QStringList() << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("org.quillo.Quillo")}}
         << untilTheDesktopThinks;
    QDBusConnection::sessionBus().send(call);
}

} // namespace quillo
