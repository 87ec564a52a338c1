#pragma once

#include "Platform/WindowHints.h"

#include <QDBusServiceWatcher>
#include <QObject>

namespace quillo {

/// Detects when the desktop can show a tray icon. Qt caches its first result for the whole process, so we ask it only
/// once there is a host.
class TrayHost final : public QObject {
    Q_OBJECT
public:
    /// `hints` must outlive the host.
    explicit TrayHost(const WindowHints& hints);

    /// Looks for a host: emits `available` at once or when one appears, and `unavailable` if there is none now. A
    /// second call repeats the known result.
    void watch();

Q_SIGNALS:
    void available();
    void unavailable();

private Q_SLOTS:
    void askWatcher();

private:
    void settle(bool found);

    const WindowHints& m_hints;
    QDBusServiceWatcher m_watcher;
    bool m_isWatching = false;
    bool m_told = false;
};

} // namespace quillo
