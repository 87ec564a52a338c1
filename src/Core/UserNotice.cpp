#include "Core/UserNotice.h"

#include "Core/NotificationCenter.h"

namespace quillo::userNotice {

namespace {

const QString messageKey = QStringLiteral("message");
const QString argumentsKey = QStringLiteral("arguments");

} // namespace

void post(const UserMessage& message) {
    NotificationCenter::shared().post(notification::userNotice,
                                      {{messageKey, message.key}, {argumentsKey, message.arguments}});
}

UserMessage from(const QVariantMap& userInfo) {
    return {userInfo.value(messageKey).toString(), userInfo.value(argumentsKey).toStringList()};
}

} // namespace quillo::userNotice
