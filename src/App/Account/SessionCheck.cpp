#include "App/Account/SessionCheck.h"

#include "Core/Log.h"

#include <utility>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("App")); }

} // namespace

SessionCheck::SessionCheck(AuthServiceProtocol& auth, Clock& clock, TaskRunner& tasks, Done done)
    : m_auth(auth), m_clock(clock), m_tasks(tasks), m_done(std::move(done)) {}

void SessionCheck::scheduleFallback() {
    m_fallback = m_clock.callLater(fallbackDelay, [this] {
        if (std::exchange(m_hasRun, true))
            return;
        m_byFallback = true;
        log(QStringLiteral("⚠️ Session fallback: auth window didn't trigger session check within 3s. Running from "
                           "AppDelegate."),
            LogLevel::warn);
        run();
    });
}

void SessionCheck::checkSession() {
    if (std::exchange(m_hasRun, true)) {
        if (m_byFallback)
            log(QStringLiteral("checkSession(): session already active (fallback path completed first), skipping"));
        return;
    }
    m_fallback.reset();
    run();
}

void SessionCheck::run() {
    m_tasks.run(QStringLiteral("session check"), [this](std::stop_token) -> Task<> {
        auto outcome = Outcome::restored;
        QString failure;
        try {
            if (!co_await m_auth.checkExistingSession()) {
                outcome = Outcome::madeAnonymous;
                co_await m_auth.createAnonymousSession();
            }
        } catch (const AuthError& error) {
            outcome = Outcome::failed;
            failure = QString::fromUtf8(error.what());
            log(QStringLiteral("Session fallback: anonymous auth failed — %1").arg(failure), LogLevel::warn);
        }
        m_done(outcome, failure);
    });
}

} // namespace quillo
