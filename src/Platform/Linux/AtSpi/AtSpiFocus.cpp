#include "Platform/Linux/AtSpi/AtSpiFocus.h"

#include "Core/Log.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QUuid>

namespace quillo {

namespace {

const QString category = QStringLiteral("Accessibility");
constexpr int answerMilliseconds = 5000;

} // namespace

AtSpiFocus::AtSpiFocus()
    : m_connectionName(QStringLiteral("quillo-atspi-") + QUuid::createUuid().toString(QUuid::WithoutBraces)) {}

AtSpiFocus::~AtSpiFocus() { QDBusConnection::disconnectFromBus(m_connectionName); }

QDBusConnection AtSpiFocus::bus() const { return QDBusConnection(m_connectionName); }

void AtSpiFocus::start() {
    auto session = QDBusConnection::sessionBus();
    if (!session.isConnected()) {
        appLog(QStringLiteral("⚠️ No session bus: the focused element is unknown"), LogLevel::warn, category);
        return;
    }
    const auto ask = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                                    QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress"));
    auto* const watcher = new QDBusPendingCallWatcher(session.asyncCall(ask, answerMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<QString> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError())
            appLog(QStringLiteral(
                       "⚠️ No accessibility bus (%1): the focused element is unknown; is at-spi2-core installed?")
                       .arg(reply.error().message()),
                   LogLevel::warn, category);
        else
            connectTo(reply.value());
    });
}

void AtSpiFocus::connectTo(const QString& address) {
    auto connection = QDBusConnection::connectToBus(address, m_connectionName);
    if (!connection.isConnected()) {
        appLog(QStringLiteral("⚠️ Cannot connect to the accessibility bus: ") + connection.lastError().message(),
               LogLevel::warn, category);
        return;
    }
    connection.connect(QString(), QString(), QStringLiteral("org.a11y.atspi.Event.Object"),
                       QStringLiteral("StateChanged"), this, SLOT(stateChanged(QDBusMessage)));
    connection.connect(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"), this,
                       SLOT(nameOwnerChanged(QString, QString, QString)));
    // Programs send only events for which a client has registered.
    auto message = QDBusMessage::createMethodCall(
        QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/registry"),
        QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("RegisterEvent"));
    message << QStringLiteral("object:state-changed:focused");
    connection.asyncCall(message, answerMilliseconds);
    appLog(QStringLiteral("✅ Following the focus on the accessibility bus"), LogLevel::debug, category);
}

void AtSpiFocus::stateChanged(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || arguments[0].toString() != u"focused")
        return;
    if (arguments[1].toInt() != 0)
        focusMoved({message.service(), message.path()});
    else if (m_focused.service == message.service() && m_focused.path == message.path())
        focusMoved({});
}

void AtSpiFocus::focusMoved(const AtSpiObject& object) {
    m_focused = object;
    m_foundIn.reset();
    m_settled.reset();
    ++m_changes;
}

void AtSpiFocus::found(const AtSpiObject& object, int64_t process) {
    m_focused = object;
    m_foundIn = process;
    m_settled.reset();
}

void AtSpiFocus::nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner) {
    Q_UNUSED(oldOwner)
    if (newOwner.isEmpty() && name == m_focused.service)
        focusMoved({});
}

} // namespace quillo
