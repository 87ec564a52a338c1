#pragma once

#include "Core/UserMessage.h"
#include "Platform/Notifications.h"

#include <QMetaObject>

#include <functional>
#include <vector>

namespace quillo {

/// Unsolicited messages to the user: notices of the start, and those that services post as `notification::userNotice`.
/// They wait until the interface can show them. Main thread.
class Notices {
public:
    using ShowHint = std::function<void(const UserMessage& notice)>;

    Notices();
    ~Notices();
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;

    void add(const UserMessage& notice);
    /// Shows waiting and later notices, as desktop notifications and through `showHint`. `notifications` must outlive
    /// the notices.
    void deliverTo(Notifications& notifications, ShowHint showHint);
    /// Shows nothing any more.
    void close();

private:
    void deliver();

    std::vector<UserMessage> m_waiting;
    Notifications* m_notifications = nullptr;
    ShowHint m_showHint;
    QMetaObject::Connection m_posted;
};

} // namespace quillo
