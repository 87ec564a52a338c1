#pragma once

#include "Platform/SessionWatch.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
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
    void delaySleep(bool delays) override;
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
    /// `problem` says what does not work when the answer is an error.
    void call(const QDBusMessage& message, const char* problem, std::function<void(const QDBusMessage&)> answered);

    QDBusConnection m_system;
    QDBusConnection m_session;
    std::function<void()> m_onLeft;
    bool m_delaysSleep = false;
    bool m_isAskingForDelay = false;
    QDBusUnixFileDescriptor m_sleepDelay; ///< logind waits for its close
    bool m_isLocked = false;
    bool m_isActive = true;
};

} // namespace quillo
