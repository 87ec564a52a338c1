#include "App/Account/AccountController.h"

#include "Features/ErrorTexts/ErrorTexts.h"

namespace quillo {

AccountController::AccountController(AuthServiceProtocol& auth, TaskRunner& tasks, std::function<void()> changed,
                                     std::function<void()> signedIn, std::function<void()> signedOut)
    : m_auth(auth), m_tasks(tasks), m_changed(std::move(changed)), m_signedIn(std::move(signedIn)),
      m_signedOut(std::move(signedOut)) {
    m_observation = m_auth.observe([this] { m_changed(); });
}

AccountState AccountController::state() const {
    AccountState state;
    if (const auto user = m_auth.currentUser()) {
        state.kind = user->isAnonymous ? AccountState::Kind::anonymous : AccountState::Kind::signedIn;
        state.name = user->fullName.value_or(QString());
        state.email = user->email.value_or(QString());
    }
    if (m_auth.isSessionExpired())
        state.kind = AccountState::Kind::expired;
    state.isBusy = m_attempts > 0;
    state.message = m_failure;
    return state;
}

void AccountController::signOut() {
    m_failure = {};
    m_auth.cancelLogin();
    m_auth.logout();
    continueAnonymously();
}

void AccountController::run(std::function<Task<>(AuthServiceProtocol&)> attempt, bool isSignIn) {
    m_failure = {};
    ++m_attempts;
    m_changed();
    m_tasks.run(QStringLiteral("account"), [this, attempt = std::move(attempt), isSignIn](std::stop_token) -> Task<> {
        bool succeeded = false;
        try {
            co_await attempt(m_auth);
            succeeded = true;
        } catch (const AuthError& error) {
            if (!error.isCancellation())
                m_failure = errorTexts::of(error);
        }
        --m_attempts;
        m_changed();
        if (succeeded && isSignIn)
            m_signedIn();
        else if (succeeded)
            continueAnonymously();
    });
}

void AccountController::continueAnonymously() {
    m_signedOut();
    m_changed();
    m_tasks.run(QStringLiteral("anonymous session"), [this](std::stop_token) -> Task<> {
        try {
            co_await m_auth.createAnonymousSession();
        } catch (const AuthError& error) {
            m_failure = errorTexts::of(error);
        }
        m_changed();
    });
}

} // namespace quillo
