// Whose session it is: the check at start, sign-in and its end, and the welcome of a new user.

#include "App/AppDelegate.h"
#include "App/HotkeySetup.h"
#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Localization/LocalizationManager.h"
#include "Services/Hotkeys/HotkeyConfig.h"

namespace quillo {

namespace {

void log(const QString& message) { appLog(message, LogLevel::info, QStringLiteral("App")); }

} // namespace

void AppDelegate::setupAccount() {
    m_account = std::make_unique<AccountController>(
        *m_services->authService, m_tasks,
        [this] {
            if (m_interface)
                m_interface->accountDidChange();
        },
        [this] { userDidSignIn(); });
    m_sessionCheck = std::make_unique<SessionCheck>(
        *m_services->authService, m_clock, m_tasks,
        [this](SessionCheck::Outcome outcome, const QString&) { sessionDidSettle(outcome); });
    if (m_services->keychain)
        m_services->keychain->onUnlocked = [this] { restoreUnlockedSession(); };
}

void AppDelegate::restoreUnlockedSession() {
    m_tasks.run(QStringLiteral("session of the unlocked keyring"), [this](std::stop_token) -> Task<> {
        co_await m_services->authService->checkExistingSession();
        m_interface->accountDidChange();
    });
}

void AppDelegate::openFirstWindow() {
    // After what is still to be done for a first dictation: a window takes its time to load.
    EventExecutor::main().post([this] {
        if (!UserSettings::shared().onboardingCompleted())
            m_interface->showWelcome();
        m_sessionCheck->checkSession();
    });
}

void AppDelegate::sessionDidSettle(SessionCheck::Outcome outcome) {
    const auto user = m_services->authService->currentUser();
    if (m_services->keychain && m_services->keychain->isLocked())
        NotificationCenter::shared().post(
            notification::userNotice,
            {{QStringLiteral("message"), LocalizationManager::shared().t(QStringLiteral("account.keyringLocked"))}});
    if (outcome == SessionCheck::Outcome::failed)
        NotificationCenter::shared().post(notification::showAuthWindow);
    else if (user && !user->isAnonymous && !UserSettings::shared().onboardingCompleted())
        finishOnboarding(); // whoever has an account from before knows the program
    // Without a user nothing could be sent yet; the queue looks again when one signs in.
    startQueue();
}

void AppDelegate::userDidSignIn() {
    auto& settings = UserSettings::shared();
    if (settings.onboardingCompleted())
        return;
    if (m_services->authService->isNewUser())
        m_interface->showWelcome();
    else
        finishOnboarding();
}

void AppDelegate::finishOnboarding() { UserSettings::shared().setValue(QStringLiteral("onboardingCompleted"), true); }

void AppDelegate::userDidChange() {
    log(QStringLiteral("🔄 Auth user changed — disconnecting WebSocket so next recording uses new token"));
    const auto user = m_services->authService->currentUser();
    UserSettings::shared().setUserId(user && !user->isAnonymous ? std::optional(user->id) : std::nullopt);
    UserSettings::shared().runMigrations();
    if (m_sideEffects && !m_sideEffects->isBusy())
        m_tasks.run(QStringLiteral("disconnect"),
                    [this](std::stop_token) { return m_services->webSocketService->disconnect(); });
}

void AppDelegate::addAccountHooks(ControlHooks& hooks) {
    hooks.account = [this] { return m_account->description(); };
    hooks.signIn = [this] { m_account->signIn(); };
    hooks.registerAccount = [this] { m_account->registerAccount(); };
    hooks.cancelSignIn = [this] { m_account->cancelSignIn(); };
    hooks.signOut = [this] { m_account->signOut(); };
    hooks.openURL = [this](const QString& url) {
        if (!m_account->state().isBusy)
            log(QStringLiteral("An address of ours arrived that no sign-in waits for; it is left alone"));
        NotificationCenter::shared().post(notification::authCallback, {{QStringLiteral("url"), url}});
    };
}

void AppDelegate::addAccountHooks(UserInterfaceHooks& hooks) {
    hooks.account = [this] { return m_account->state(); };
    hooks.signIn = [this] { m_account->signIn(); };
    hooks.registerAccount = [this] { m_account->registerAccount(); };
    hooks.cancelSignIn = [this] { m_account->cancelSignIn(); };
    hooks.signOut = [this] { m_account->signOut(); };
    hooks.deleteAccount = [this] { m_account->deleteAccount(); };
}

void AppDelegate::addOnboardingHooks(UserInterfaceHooks& hooks) {
    hooks.hotkeyName = [this] {
        return m_services->hotkeyService->isRunning()
                   ? HotkeyConfig::fromSettings(UserSettings::shared()).displayString()
                   : QString();
    };
    hooks.hotkeySteps = [] { return hotkeySetup::guide(); };
    hooks.observeHotkey = [this](std::function<void(bool)> observer) { m_hotkeyObserver = std::move(observer); };
    hooks.startMicrophoneTest = [this](MicrophoneProbe::OnLevel onLevel, MicrophoneProbe::OnFailure onFailure) {
        if (m_sideEffects->isBusy())
            onFailure(LocalizationManager::shared().t(QStringLiteral("welcome.microphone.dictating")));
        else
            m_microphoneProbe->start(std::move(onLevel), std::move(onFailure));
    };
    hooks.stopMicrophoneTest = [this] { m_microphoneProbe->stop(); };
    hooks.launchAtLogin = [] { return UserSettings::shared().launchAtLogin(); };
    hooks.setLaunchAtLogin = [](bool on) { UserSettings::shared().setValue(QStringLiteral("launchAtLogin"), on); };
    hooks.finishOnboarding = [this] { finishOnboarding(); };
}

} // namespace quillo
