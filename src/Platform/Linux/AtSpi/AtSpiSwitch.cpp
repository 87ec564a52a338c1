#include "Platform/Linux/AtSpi/AtSpiSwitch.h"

#include "Core/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDBusVariant>

namespace quillo {

namespace {

const QString enabled = QStringLiteral("IsEnabled");
constexpr int answerMilliseconds = 5000;
constexpr int answerMillisecondsAtExit = 500;

QDBusMessage propertyCall(const QString& method, const QString& name) {
    auto message = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                                  QStringLiteral("org.freedesktop.DBus.Properties"), method);
    message << QStringLiteral("org.a11y.Status") << name;
    return message;
}

QDBusMessage getter(const QString& name) { return propertyCall(QStringLiteral("Get"), name); }

QDBusMessage setter(bool value) {
    auto message = propertyCall(QStringLiteral("Set"), enabled);
    message << QVariant::fromValue(QDBusVariant(value));
    return message;
}

} // namespace

void AtSpiSwitch::setOurs(bool isOurs) {
    m_isOurs = isOurs;
    if (m_memory.setOurs)
        m_memory.setOurs(isOurs);
}

void AtSpiSwitch::turnOn() {
    auto* const watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(getter(enabled), answerMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError())
            return; // AtSpiFocus reports that there is no accessibility bus
        const bool wasOn = reply.value().variant().toBool();
        // It is still ours when an earlier run was killed.
        setOurs(!wasOn || (m_memory.isOurs && m_memory.isOurs()));
        if (!wasOn)
            QDBusConnection::sessionBus().asyncCall(setter(true), answerMilliseconds);
    });
}

AtSpiSwitch::~AtSpiSwitch() {
    auto session = QDBusConnection::sessionBus();
    if (!m_isOurs || !session.isConnected())
        return;
    const QDBusReply<QDBusVariant> reader =
        session.call(getter(QStringLiteral("ScreenReaderEnabled")), QDBus::Block, answerMillisecondsAtExit);
    if (reader.isValid() && reader.value().variant().toBool()) {
        setOurs(false);
        return;
    }
    const auto answer = session.call(setter(false), QDBus::Block, answerMillisecondsAtExit);
    if (answer.type() == QDBusMessage::ReplyMessage)
        setOurs(false);
    else
        appLog(QStringLiteral("⚠️ The accessibility switch could not be given back: ") + answer.errorMessage(),
               LogLevel::warn, QStringLiteral("Accessibility"));
}

} // namespace quillo
