#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusObjectPath>
#include <QObject>
#include <QVariantMap>

namespace quillo::test {

constexpr const char* sessionPath = "/org/freedesktop/login1/session/_32";

/// org.freedesktop.login1.Manager with one session.
class ScriptedManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")
public Q_SLOTS: // NOLINT: the bus calls it
    QDBusObjectPath GetSession(const QString&) { return QDBusObjectPath(QLatin1String(sessionPath)); }
Q_SIGNALS:
    void PrepareForSleep(bool isStarting);
};

/// org.freedesktop.login1.Session.
class ScriptedLoginSession final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Session")
    Q_PROPERTY(bool LockedHint MEMBER m_isLocked)
    Q_PROPERTY(bool Active MEMBER m_isActive)
public:
    bool m_isLocked = false;
    bool m_isActive = true;
Q_SIGNALS:
    void Lock();
};

} // namespace quillo::test
