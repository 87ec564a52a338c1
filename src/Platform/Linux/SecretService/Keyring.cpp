#include "Platform/Linux/SecretService/Keyring.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

namespace quillo {

namespace {

const QString service = QStringLiteral("org.freedesktop.secrets");
const QString servicePath = QStringLiteral("/org/freedesktop/secrets");
const QString serviceInterface = QStringLiteral("org.freedesktop.Secret.Service");
const QString collectionInterface = QStringLiteral("org.freedesktop.Secret.Collection");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

/// The first value of the answer; invalid when there is none.
QVariant ask(const QString& path, const QString& interface, const QString& method, const QVariantList& arguments,
             std::chrono::milliseconds deadline) {
    auto question = QDBusMessage::createMethodCall(service, path, interface, method);
    question.setArguments(arguments);
    const auto answer = QDBusConnection::sessionBus().call(question, QDBus::Block, static_cast<int>(deadline.count()));
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0) : QVariant();
}

} // namespace

KeyringState keyringState(std::chrono::milliseconds deadline) {
    if (!QDBusConnection::sessionBus().isConnected())
        return KeyringState::missing;
    const auto collection =
        ask(servicePath, serviceInterface, QStringLiteral("ReadAlias"), {QStringLiteral("default")}, deadline)
            .value<QDBusObjectPath>()
            .path();
    if (collection.isEmpty() || collection == QStringLiteral("/"))
        return KeyringState::missing;
    const auto locked = ask(collection, propertiesInterface, QStringLiteral("Get"),
                            {collectionInterface, QStringLiteral("Locked")}, deadline)
                            .value<QDBusVariant>()
                            .variant();
    if (!locked.isValid())
        return KeyringState::missing;
    return locked.toBool() ? KeyringState::locked : KeyringState::open;
}

KeyringWatch::KeyringWatch(std::function<void()> changed) : m_changed(std::move(changed)) {
    auto bus = QDBusConnection::sessionBus();
    bus.connect(service, servicePath, serviceInterface, QStringLiteral("CollectionChanged"), this,
                SLOT(collectionDidChange()));
    // Of whatever object: which collection is the default one may change too.
    bus.connect(service, QString(), propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                SLOT(collectionDidChange()));
}

} // namespace quillo
