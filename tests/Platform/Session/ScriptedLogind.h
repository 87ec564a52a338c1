#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QVariantMap>

#include <algorithm>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace quillo::test {

constexpr const char* sessionPath = "/org/freedesktop/login1/session/_32";

/// org.freedesktop.login1.Manager with one session.
class ScriptedManager final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")
public Q_SLOTS: // NOLINT: the bus calls it
    QDBusObjectPath GetSession(const QString&) { return QDBusObjectPath(QLatin1String(sessionPath)); }
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString&, const QString&, const QString& mode) {
        int ends[2];
        if (what != u"sleep"_qs || mode != u"delay"_qs || ::pipe2(ends, O_CLOEXEC) != 0)
            return {};
        m_delays.emplace_back(ends[0]);
        QDBusUnixFileDescriptor lock;
        lock.giveFileDescriptor(ends[1]);
        ::close(ends[0]);
        return lock;
    }

public:
    /// How many of the locks that were given are held.
    [[nodiscard]] int delays() const {
        return static_cast<int>(std::ranges::count_if(m_delays, [](const QDBusUnixFileDescriptor& end) {
            pollfd poll{end.fileDescriptor(), POLLIN, 0};
            return ::poll(&poll, 1, 0) == 0;
        }));
    }
    std::vector<QDBusUnixFileDescriptor> m_delays; ///< a pipe each, whose other end has closed when the lock is gone

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
