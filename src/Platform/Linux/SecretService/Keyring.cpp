#include "Platform/Linux/SecretService/Keyring.h"

#include <QDBusConnection>
#include <QDBusError>
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

/// The first value of an answer, or why there is none.
struct Answer {
    QVariant value;
    bool isSilent = false; ///< no refusal, but the deadline passed
};

Answer ask(const QString& path, const QString& interface, const QString& method, const QVariantList& arguments,
           std::chrono::milliseconds deadline) {
    auto question = QDBusMessage::createMethodCall(service, path, interface, method);
    question.setArguments(arguments);
    const auto answer = QDBusConnection::sessionBus().call(question, QDBus::Block, static_cast<int>(deadline.count()));
    if (answer.type() == QDBusMessage::ReplyMessage)
        return {answer.arguments().value(0), false};
    const auto error = QDBusError(answer).type();
    return {{}, error == QDBusError::NoReply || error == QDBusError::Timeout || error == QDBusError::TimedOut};
}

KeyringState withoutAnswer(const Answer& answer) {
    return answer.isSilent ? KeyringState::silent : KeyringState::missing;
}

} // namespace

KeyringState keyringState(std::chrono::milliseconds deadline) {
    if (!QDBusConnection::sessionBus().isConnected())
        return KeyringState::missing;
    const auto alias =
        ask(servicePath, serviceInterface, QStringLiteral("ReadAlias"), {QStringLiteral("default")}, deadline);
    const auto collection = alias.value.value<QDBusObjectPath>().path();
    if (collection.isEmpty() || collection == QStringLiteral("/"))
        return withoutAnswer(alias);
    const auto answer = ask(collection, propertiesInterface, QStringLiteral("Get"),
                            {collectionInterface, QStringLiteral("Locked")}, deadline);
    const auto locked = answer.value.value<QDBusVariant>().variant();
    if (!locked.isValid())
        return withoutAnswer(answer);
    return locked.toBool() ? KeyringState::locked : KeyringState::open;
}

KeyringWatch::KeyringWatch(std::function<void()> changed)
    : m_changed(std::move(changed)),
      m_appearance(service, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForRegistration) {
    connect(&m_appearance, &QDBusServiceWatcher::serviceRegistered, this, [this] { m_changed(); });
    auto bus = QDBusConnection::sessionBus();
    for (const auto* signal : {"CollectionChanged", "CollectionCreated"})
        bus.connect(service, servicePath, serviceInterface, QString::fromLatin1(signal), this,
                    SLOT(collectionDidChange()));
    // Listen to all objects, because the default collection may change too.
    bus.connect(service, QString(), propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                SLOT(collectionDidChange()));
}

} // namespace quillo
