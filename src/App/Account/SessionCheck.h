#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo {

/// Finds out at start whose session this is, once: by the interface as soon as it can show the answer, or by itself
/// when the interface has not asked in time. Without a session an anonymous one is made. Main thread.
class SessionCheck {
public:
    static constexpr auto fallbackDelay = std::chrono::seconds(3);

    enum class Outcome {
        restored,      ///< a session of an earlier run
        madeAnonymous, ///< there was none
        failed,        ///< there was none and none could be made; `failure` says why
    };
    using Done = std::function<void(Outcome outcome, const QString& failure)>;

    /// The references outlive the check; `done` is called once.
    SessionCheck(AuthServiceProtocol& auth, Clock& clock, TaskRunner& tasks, Done done);

    /// From now on the check happens by itself when nobody has run it within `fallbackDelay`.
    void scheduleFallback();
    /// Runs the check unless it ran already.
    void checkSession();

private:
    void run();

    AuthServiceProtocol& m_auth;
    Clock& m_clock;
    TaskRunner& m_tasks;
    Done m_done;
    bool m_hasRun = false;
    bool m_byFallback = false;
    Clock::TimerHandle m_fallback;
};

} // namespace quillo
