#include "Support/Async.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

namespace quillo::test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds watchdog) {
    const QDeadlineTimer deadline(watchdog);
    // Wake the loop regularly, for conditions that other threads make true without posting an event here.
    QTimer tick;
    tick.start(std::chrono::milliseconds(5));
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace quillo::test
