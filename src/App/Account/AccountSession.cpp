#include "App/Account/AccountSession.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Core/UserNotice.h"

namespace quillo {

AccountSession::AccountSession(AuthServiceProtocol& auth, KeychainTokenStorage* keychain, UserSettings& settings,
                               LastUser& lastUser, Clock& clock, TaskRunner& tasks, Hooks hooks)
    : m_auth(auth), m_keychain(keychain), m_settings(settings), m_lastUser(lastUser), m_tasks(tasks),
      m_hooks(std::move(hooks)), m_controller(
                                     auth, tasks, [this] { m_hooks.accountDidChange(); }, [this] { userDidSignIn(); },
                                     [this] { userDidSignOut(); }),
      m_check(auth, clock, tasks,
              [this](SessionCheck::Outcome outcome, const QString&) { sessionDidSettle(outcome); }) {
    m_notifications = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                       [this](const QString& name, const QVariantMap&) {
                                           if (name == notification::authUserDidChange)
                                               userDidChange();
                                       });
    if (m_keychain)
        m_keychain->onUnlocked = [this] { restoreUnlockedSession(); };
}

AccountSession::~AccountSession() {
    QObject::disconnect(m_notifications);
    if (m_keychain)
        m_keychain->onUnlocked = {};
}

void AccountSession::restoreUnlockedSession() {
    m_tasks.run(QStringLiteral("session of the unlocked keyring"), [this](std::stop_token) -> Task<> {
        co_await m_auth.checkExistingSession();
        sayIfExpired();
        m_hooks.accountDidChange();
    });
}

void AccountSession::sayIfExpired() {
    if (m_auth.isSessionExpired())
        userNotice::post({QStringLiteral("account.expired")});
}

void AccountSession::sessionDidSettle(SessionCheck::Outcome outcome) {
    const auto user = m_auth.currentUser();
    sayIfExpired();
    if (m_keychain && m_keychain->isLocked())
        userNotice::post({QStringLiteral("account.keyringLocked")});
    if (outcome == SessionCheck::Outcome::failed)
        NotificationCenter::shared().post(notification::showAuthWindow);
    else if (user && !user->isAnonymous && !m_settings.onboardingCompleted())
        finishOnboarding(); // a user who already has an account knows the program
    m_hooks.sessionDidSettle();
}

void AccountSession::userDidSignIn() {
    if (m_settings.onboardingCompleted())
        return;
    if (m_auth.isNewUser())
        m_hooks.showWelcome();
    else
        finishOnboarding();
}

void AccountSession::finishOnboarding() { m_settings.setValue(QStringLiteral("onboardingCompleted"), true); }

void AccountSession::userDidChange() {
    appLog(QStringLiteral("🔄 Auth user changed — disconnecting WebSocket so next recording uses new token"),
           LogLevel::info, QStringLiteral("App"));
    applyUser();
    m_hooks.dropConnection();
}

void AccountSession::applyUser() {
    const auto user = m_auth.currentUser();
    if (!user || user->isAnonymous)
        return;
    m_lastUser.remember(user->id);
    m_lastUser.applyTo(m_settings);
}

void AccountSession::userDidSignOut() {
    m_lastUser.remember({});
    m_lastUser.applyTo(m_settings);
}

} // namespace quillo
