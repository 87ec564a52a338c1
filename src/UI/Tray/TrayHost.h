#pragma once

#include "Platform/WindowHints.h"

#include <QDBusServiceWatcher>
#include <QObject>

namespace quillo {

/// Finds out when the desktop can hold a tray icon. Qt remembers its first answer for the life of the process, so it is
/// not asked before there is a host.
class TrayHost final : public QObject {
    Q_OBJECT
public:
    /// `hints` must outlive the host.
    explicit TrayHost(const WindowHints& hints);

    /// Looks for a host; `available` follows, at once or when one appears. `unavailable` follows when none is there
    /// now. A second call tells again what is known already.
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
