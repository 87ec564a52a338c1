#pragma once

#include "Core/UserMessage.h"

#include <QVariantMap>

/// Unsolicited messages to the user, posted as `notification::userNotice` by services that know no window. The notice
/// carries the key and the arguments; the words are looked up when it is shown. Main thread.
namespace quillo::userNotice {

void post(const UserMessage& message);
/// The message that `post` has put into the notification.
[[nodiscard]] UserMessage from(const QVariantMap& userInfo);

} // namespace quillo::userNotice
