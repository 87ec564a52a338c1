#pragma once

#include "App/AccountController.h"
#include "App/ControlService.h"
#include "App/HistoryStartup.h"
#include "App/LocalServer.h"
#include "App/MicrophoneProbe.h"
#include "App/ServiceContainer.h"
#include "App/SessionCheck.h"
#include "Concurrency/TaskRunner.h"
#include "Features/Recording/RecordingSideEffects.h"
#include "Features/Recording/RecordingStore.h"
#include "Services/Desktop/LaunchAtLogin.h"
#include "Services/Queue/PendingTranscriptionManager.h"
#include "UI/UserInterface.h"

#include <memory>
#include <optional>

namespace quillo {

/// Builds the application and holds it together: services, store, hotkeys, interface, remote control. Main thread.
class AppDelegate {
public:
    AppDelegate();
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Starts everything that can be started; what cannot, is told to the user. False when another instance runs
    /// already. Throws std::invalid_argument when the environment names a server that is none; `what()` says what to
    /// do.
    bool launch();
    /// Shows `notice` to the user as soon as there is an interface to show it in.
    void tellUser(const QString& notice);
    /// Ends the program when what is being said is on the disk.
    void quit();

private:
    /// Throws std::exception.
    void buildServices();
    /// Only says what is wrong, and can be ended. False when another instance runs already.
    bool goOnWithoutServices(const QString& reason);
    [[nodiscard]] ServerEnvironment chooseServer();
    void setupStore();
    void setupHotkeys();
    void hotkeyDown();
    void hotkeyUp();
    void setupInterface();
    void setupLocalServer();
    void setupLaunchAtLogin();
    void observeNotifications();

    void setupAccount();
    /// Shows the welcome to a new user; asks whose session this is either way.
    void openFirstWindow();
    void restoreUnlockedSession();
    void sessionDidSettle(SessionCheck::Outcome outcome);
    void userDidSignIn();
    void userDidChange();
    void finishOnboarding();
    void addAccountHooks(ControlHooks& hooks);
    void addAccountHooks(UserInterfaceHooks& hooks);
    void addOnboardingHooks(UserInterfaceHooks& hooks);

    /// A recording that waited has its text now.
    void recordDidRecover(const QString& id);
    void enforceStorageLimit();
    /// Transcribes what waits on the disk, from now on.
    void startQueue();
    /// Tells the user what services have reported, as soon as there is an interface to tell it.
    void deliverNotices();
    [[nodiscard]] ControlHooks controlHooks();
    [[nodiscard]] ControlHooks controlHooksWithoutServices(const QString& reason);
    void addHistoryHooks(ControlHooks& hooks);
    [[nodiscard]] UserInterfaceHooks interfaceHooks();
    [[nodiscard]] RecordingPreferences recordingPreferences() const;
    [[nodiscard]] QString statusObject() const;
    void applyMicrophone();
    /// Inserts what did not arrive, else the last text.
    void insertLastTextAgain();
    void send(const RecordingAction& action) {
        if (m_store)
            m_store->send(action);
    }
    [[nodiscard]] bool isRecording() const { return m_store && m_store->state().status.isActive(); }

    SystemClock m_clock;
    TaskRunner m_tasks;
    InstanceLock m_instance;
    QStringList m_notices;
    bool m_isQuitting = false;
    std::unique_ptr<ControlService> m_control;
    std::unique_ptr<LocalServer> m_localServer;
    std::optional<ServerEnvironment> m_environment;
    std::unique_ptr<ModelContainer> m_history;
    std::unique_ptr<ServiceContainer> m_services;
    std::optional<LaunchAtLogin> m_launchAtLogin;
    bool m_launchesAtLogin = false; ///< as far as is known here
    std::unique_ptr<AccountController> m_account;
    std::unique_ptr<SessionCheck> m_sessionCheck;
    std::unique_ptr<MicrophoneProbe> m_microphoneProbe;
    std::function<void(bool isDown)> m_hotkeyObserver; ///< a trial of the hotkey
    std::unique_ptr<PendingTranscriptionManager> m_queue;
    std::unique_ptr<RecordingSideEffects> m_sideEffects;
    std::unique_ptr<RecordingStore> m_store;
    Observation m_stateObservation;
    std::unique_ptr<TrayHost> m_statusItem; ///< until the interface takes it
    std::unique_ptr<UserInterface> m_interface;
};

} // namespace quillo
