#pragma once

#include <QString>

#include <functional>

namespace quillo {

/// Messages shown by the desktop, outside the application's own windows. Main thread.
class Notifications {
public:
    /// `failure` is for the log; empty when the desktop accepted the message.
    using Shown = std::function<void(const QString& failure)>;

    virtual ~Notifications() = default;
    /// Shows `text`, which may have several lines. Returns at once; `shown` is called when the desktop has answered,
    /// and never after this object is destroyed.
    virtual void show(const QString& text, Shown shown = {}) = 0;
};

} // namespace quillo
