#pragma once

#include <QString>

#include <functional>

namespace quillo {

/// Messages that the desktop shows beside the application's own windows. Main thread.
class Notifications {
public:
    /// `failure` is for the log; empty when the desktop took the message.
    using Shown = std::function<void(const QString& failure)>;

    virtual ~Notifications() = default;
    /// Shows `text`, which may have several lines. Returns at once; `shown` follows when the desktop has answered, and
    /// never after the end of this object.
    virtual void show(const QString& text, Shown shown = {}) = 0;
};

} // namespace quillo
