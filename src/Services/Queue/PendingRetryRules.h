#pragma once

#include <QDateTime>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace quillo::pendingRetry {

/// A recording that has waited for so long is given up.
constexpr std::chrono::seconds longestAge{604'800};
/// A recording that failed so often is given up.
constexpr int64_t maximumAttempts = 12;
/// How often the queue is looked at while something waits in it.
constexpr std::chrono::seconds checkInterval{30};
/// Files that belong to nothing are left alone for so long.
constexpr std::chrono::seconds youngFile{300};
/// From the news that the server works again to the pass over the queue, so that the dictation that brought it is
/// delivered and saved first.
constexpr std::chrono::seconds recoveryDelay{5};

/// The wait before the next attempt. With the cap of attempts the last step of the table is never reached; it stands
/// for a cap that is raised.
constexpr std::chrono::seconds backoff(int64_t attemptsMade) {
    using std::chrono::seconds;
    if (attemptsMade <= 0)
        return seconds(5);
    if (attemptsMade == 1)
        return seconds(15);
    if (attemptsMade <= 4)
        return seconds(60);
    if (attemptsMade <= 28)
        return seconds(3600);
    return seconds(10'800);
}

/// The longest wait before an absent server is asked again. One recording is sent to find out.
constexpr std::chrono::seconds longestServerWait{300};

/// The wait before a server is asked again that was not reached so often in a row.
constexpr std::chrono::seconds serverWait(int failures) { return std::min(backoff(failures), longestServerWait); }

/// Seconds that are still to wait at `now`; 0 when the next attempt is due. A last attempt in the future, after the
/// clock was set back, holds nothing up.
constexpr int64_t remainingWait(int64_t attemptsMade, int64_t secondsSinceLast) {
    const auto wait = static_cast<int64_t>(backoff(attemptsMade).count());
    return secondsSinceLast < 0 || secondsSinceLast >= wait ? 0 : wait - secondsSinceLast;
}

} // namespace quillo::pendingRetry
