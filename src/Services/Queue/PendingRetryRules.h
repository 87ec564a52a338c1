#pragma once

#include <QDateTime>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace quillo::pendingRetry {

/// A recording that has waited this long is given up.
constexpr std::chrono::seconds longestAge{604'800};
/// A recording that has failed this often is given up.
constexpr int64_t maximumAttempts = 12;
/// How often the queue is checked while something waits.
constexpr std::chrono::seconds checkInterval{30};
/// How long unused files are kept.
constexpr std::chrono::seconds youngFile{300};
/// The delay between the recovery of the server and the pass over the queue, so that the dictation that revealed the
/// recovery is delivered and saved first.
constexpr std::chrono::seconds recoveryDelay{5};

/// The wait before the next attempt. With the current limit of attempts the last step of the table is never reached; it
/// is for a higher limit.
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

/// The longest wait before an unreachable server is tried again, by sending one recording.
constexpr std::chrono::seconds longestServerWait{300};

/// The longest wait that a server may ask for (Retry-After).
constexpr std::chrono::seconds longestRequestedWait{3600};

/// The wait before trying a server again that was unreachable this many times in a row.
constexpr std::chrono::seconds serverWait(int failures) { return std::min(backoff(failures), longestServerWait); }

/// Remaining seconds of the wait at `now`; 0 when the next attempt is due. A last attempt in the future, after the
/// clock was set back, does not delay it.
constexpr int64_t remainingWait(int64_t attemptsMade, int64_t secondsSinceLast) {
    const auto wait = static_cast<int64_t>(backoff(attemptsMade).count());
    return secondsSinceLast < 0 || secondsSinceLast >= wait ? 0 : wait - secondsSinceLast;
}

} // namespace quillo::pendingRetry
