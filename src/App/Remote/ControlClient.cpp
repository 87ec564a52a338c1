#include "App/Remote/ControlClient.h"

#include "App/Remote/ControlInterface.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QTextStream>

namespace quillo::controlClient {

namespace {

constexpr int callTimeoutMs = 5000;

void printError(const QString& text) { QTextStream(stderr) << "quillo: " << text << '\n'; }

int callInterface(const QString& interface, const QString& method, const QVariantList& arguments, QString* answer) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        printError(
            QStringLiteral("there is no session bus, so no running Quillo can be reached. Run this in the desktop "
                           "session that Quillo runs in."));
        return notRunning;
    }
    auto message = QDBusMessage::createMethodCall(control::serviceName, control::objectPath, interface, method);
    message.setAutoStartService(false);
    message.setArguments(arguments);
    const auto reply = bus.call(message, QDBus::Block, callTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        if (!reply.arguments().isEmpty())
            *answer = reply.arguments().constFirst().toString();
        return 0;
    }
    const auto error = QDBusError(reply).type();
    if (error == QDBusError::ServiceUnknown || reply.errorName().endsWith(QStringLiteral(".NameHasNoOwner"))) {
        printError(QStringLiteral("Quillo is not running. Start it with: quillo"));
        return notRunning;
    }
    printError(reply.errorMessage());
    return 1;
}

} // namespace

int call(const QString& method, const QVariantList& arguments, QString* answer) {
    return callInterface(control::interfaceName, method, arguments, answer);
}

int openURL(const QString& url) {
    QString answer;
    return callInterface(control::applicationInterfaceName, QStringLiteral("Open"), {QStringList{url}, QVariantMap()},
                         &answer);
}

void activate() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    auto message = QDBusMessage::createMethodCall(control::serviceName, control::objectPath,
                                                  control::applicationInterfaceName, QStringLiteral("Activate"));
    message.setAutoStartService(false);
    message << QVariantMap();
    bus.call(message, QDBus::Block, callTimeoutMs);
}

} // namespace quillo::controlClient
