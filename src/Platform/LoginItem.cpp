#include "Platform/LoginItem.h"

namespace quillo {

QString toString(LoginItemStatus status) {
    switch (status) {
    case LoginItemStatus::enabled:
        return QStringLiteral("enabled");
    case LoginItemStatus::notRegistered:
        return QStringLiteral("notRegistered");
    case LoginItemStatus::requiresApproval:
        return QStringLiteral("requiresApproval");
    }
    return {};
}

} // namespace quillo
