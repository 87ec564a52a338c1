#pragma once

#include "Platform/SessionWatch.h"

#include <QDBusConnection>

#include <memory>

namespace quillo {

/// Listens to org.freedesktop.login1 on the system bus (Lock, LockedHint and Active of our session, PrepareForSleep)
/// and to the screen savers on the session bus (ActiveChanged of org.freedesktop.ScreenSaver and its desktop variants).
/// A bus that is not there reports nothing.
std::unique_ptr<SessionWatch> createLogindSessionWatch(QDBusConnection system = QDBusConnection::systemBus(),
                                                       QDBusConnection session = QDBusConnection::sessionBus());

} // namespace quillo
