#pragma once

#include <QString>

namespace quillo {

/// The address of the running instance on the session bus.
namespace control {
inline const QString serviceName = QStringLiteral("org.quillo.Quillo");
inline const QString objectPath = QStringLiteral("/org/quillo/Quillo");
inline const QString interfaceName = QStringLiteral("org.quillo.Quillo1");
/// The standard interface that any desktop may call.
inline const QString applicationInterfaceName = QStringLiteral("org.freedesktop.Application");
} // namespace control

} // namespace quillo
