#pragma once

#include "Platform/SessionWatch.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

namespace quillo {

/// The object behind `createLogindSessionWatch`; a QObject because D-Bus signals need slots.
class LogindSession final : public QObject, public SessionWatch {
    Q_OBJECT
public:
    LogindSession(QDBusConnection system, QDBusConnection session);

    void start(std::function<void()> onLeft) override;
    [[nodiscard]] bool isAway() const override { return m_isLocked || !m_isActive; }

private Q_SLOTS:
    void prepareForSleep(bool isStarting);
    void lock();
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);
    void screenSaverChanged(bool isActive);

private:
    void watchSession(const QString& path);
    void take(const QVariantMap& properties);
    void left(const char* reason);
    void call(const QDBusMessage& message, std::function<void(const QDBusMessage&)> answered);

    QDBusConnection m_system;
    QDBusConnection m_session;
    std::function<void()> m_onLeft;
    bool m_isLocked = false;
    bool m_isActive = true;
};

} // namespace quillo
