#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo {

/// Restores the session once at start, or creates an anonymous one. Triggered by the interface as soon as it can show
/// the result, or by a timer if the interface does not ask in time. Main thread.
class SessionCheck {
public:
    static constexpr auto fallbackDelay = std::chrono::seconds(3);

    enum class Outcome {
        restored,      ///< a session of an earlier run
        madeAnonymous, ///< there was none
        failed,        ///< there was none and none could be created; `failure` says why
    };
    using Done = std::function<void(Outcome outcome, const QString& failure)>;

    /// The references must outlive the check; `done` is called once.
    SessionCheck(AuthServiceProtocol& auth, Clock& clock, TaskRunner& tasks, Done done);

    /// Starts a timer that runs the check after `fallbackDelay` unless it has run before.
    void scheduleFallback();
    /// Runs the check unless it has already run.
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
