#pragma once

#include <QString>

namespace quillo {

/// Shows `text` as a notification of the desktop; nothing happens where no notification service runs. Returns at once.
void notifyDesktop(const QString& text);

} // namespace quillo
