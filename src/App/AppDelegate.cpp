#include "App/AppDelegate.h"

#include "App/HotkeySetup.h"
#include "App/PreferenceMigrations.h"
#include "Core/Log.h"
#include "Core/LoggingService.h"
#include "Core/NotificationCenter.h"
#include "Data/TagManager.h"
#include "Features/Recording/RecordingReducer.h"
#include "Localization/LocalizationManager.h"
#include "Services/Recordings/AudioStorageManager.h"
#include "UI/DesktopNotification.h"

#include <QApplication>
#include <QFileInfo>
#include <QStandardPaths>

#include <system_error>

namespace quillo {

namespace {

/// Nothing answers there (the discard service is long gone from everywhere): what is said waits in the queue.
const QString unservedHost = QStringLiteral("127.0.0.1:9");

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("App")); }

} // namespace

AppDelegate::AppDelegate()
    : m_clock(EventExecutor::main()), m_tasks([](const QString& name, const QString& error) {
          log(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error);
      }) {}

AppDelegate::~AppDelegate() {
    // The hotkeys first: nothing may start a dictation while the rest goes.
    if (m_services && m_services->hotkeyService)
        m_services->hotkeyService->stop();
}

bool AppDelegate::launch() {
    log(QStringLiteral("🚀 Application launching..."));
    if (!m_instance.acquire())
        return false;
    observeNotifications();
    PreferenceMigrations migrations(Preferences::shared(),
                                    QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    migrations.copyLegacyDefaults();
    m_history = openHistory(QCoreApplication::arguments());
    m_statusItem = createStatusItem();
    log(QStringLiteral("✅ Basic status item created in menu bar"));
    log(QStringLiteral("✅ Quillo launched, basic menu bar ready"));
    m_control = std::make_unique<ControlService>(controlHooks());
    UserSettings::shared().runMigrations();
    try {
        buildServices();
    } catch (const std::exception& error) {
        return goOnWithoutServices(QString::fromUtf8(error.what()));
    }
    setupStore();
    // Who sees the name on the bus may give commands: the store stands by now.
    if (m_control->registerOnBus() == ControlService::Registration::alreadyRunning)
        return false;
    migrations.keepFunctionKeyOfExistingUser();
    migrations.dropShiftBackquote();
    setupHotkeys();
    setupAccount();
    setupInterface();
    setupLocalServer();
    setupLaunchAtLogin();
    m_services->networkMonitor->startMonitoring();
    m_sessionCheck->scheduleFallback();
    openFirstWindow();
    deliverNotices();
    return true;
}

void AppDelegate::buildServices() {
    m_environment = chooseServer();
    log(QStringLiteral("[ServiceContainer] Server host: %1").arg(m_environment->host()));
    log(QStringLiteral("[ServiceContainer] WebSocket endpoint: %1").arg(m_environment->wsTranscribeURL().toString()));
    m_services = std::make_unique<ServiceContainer>(m_clock, UserSettings::shared(), *m_environment);
    log(QStringLiteral("[AppDelegate] Services initialized via ServiceContainer"));
}

bool AppDelegate::goOnWithoutServices(const QString& reason) {
    log(reason, LogLevel::error);
    setupStore();
    m_control = std::make_unique<ControlService>(controlHooksWithoutServices(reason));
    if (m_control->registerOnBus() == ControlService::Registration::alreadyRunning)
        return false;
    notifyDesktop(reason);
    return true;
}

ServerEnvironment AppDelegate::chooseServer() {
    // The mock services ask no server.
    if (qEnvironmentVariableIsSet("QUILLO_SERVER_HOST") || ServiceContainer::usesMockServices())
        return ServerEnvironment::fromEnvironment(QStringLiteral("localhost"));
    if (LocalServer::findProgram().isEmpty()) {
        m_notices << QStringLiteral("There is no server to dictate with: the program quillo-server is not installed. "
                                    "Install it, or name a server in the environment variable QUILLO_SERVER_HOST, and "
                                    "start Quillo again. Until then dictations are kept as audio.");
        return ServerEnvironment::fromEnvironment(unservedHost);
    }
    try {
        m_localServer = std::make_unique<LocalServer>(m_clock);
    } catch (const std::system_error& error) {
        m_notices << QStringLiteral(
                         "The server on this machine could not be started: %1. Dictations are kept as audio.")
                         .arg(QString::fromUtf8(error.what()));
        return ServerEnvironment::fromEnvironment(unservedHost);
    }
    return ServerEnvironment::fromEnvironment(m_localServer->host());
}

void AppDelegate::setupLocalServer() {
    if (m_localServer)
        m_localServer->start(LocalServer::findProgram(),
                             QFileInfo(LoggingService::defaultPath()).path() + QStringLiteral("/quillo-server.log"));
}

void AppDelegate::setupStore() {
    if (!m_services) {
        log(QStringLiteral("[AppDelegate] ⚠️ setupStore called but serviceContainer is nil — skipping"), LogLevel::warn);
        return;
    }
    auto& services = *m_services;
    m_sideEffects = std::make_unique<RecordingSideEffects>(RecordingServices{
        m_clock, *services.audioService, *services.webSocketService, *services.textInjectionService,
        *services.tokenStorage, *services.authService, *services.permissionService, *services.networkMonitor,
        *services.metricsService, *services.applications, *services.sounds, [this] { return recordingPreferences(); },
        m_history ? ArchiveStores{&m_history->mainContext(), &TagManager::shared()} : ArchiveStores{},
        [](bool languageMismatch) { UserSettings::shared().countRecording(languageMismatch); }});
    m_store = std::make_unique<RecordingStore>(
        EventExecutor::main(), RecordingState(),
        [reducer = RecordingReducer([this] { return m_clock.wallTime(); })](
            const RecordingState& state, const RecordingAction& action) { return reducer.reduce(state, action); },
        [this](RecordingEffect effect) {
            // The microphone is captured once at a time, and the dictation goes first.
            if (std::holds_alternative<effect::BeginDictation>(effect))
                m_microphoneProbe->giveWay(
                    LocalizationManager::shared().t(QStringLiteral("welcome.microphone.dictating")));
            return m_sideEffects->handle(std::move(effect));
        },
        [](const QString& name, const QString& error) {
            log(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error);
        });
    m_stateObservation = m_store->observe([this](const RecordingState& before, const RecordingState& after) {
        if (before.status == after.status)
            return;
        m_services->hotkeyService->setRecordingActive(after.status.isActive());
        // Not when the next dictation has begun meanwhile: nothing may keep its microphone waiting.
        if (before.status.is<RecordingState::Processing>() && !after.status.isUnderWay())
            enforceStorageLimit();
    });
    m_microphoneProbe = std::make_unique<MicrophoneProbe>(*services.audioService, m_tasks);
    applyMicrophone();
    QObject::connect(&UserSettings::shared(), &UserSettings::changed, qApp, [this](const QString& key) {
        if (key == QStringLiteral("selectedMicrophoneId"))
            applyMicrophone();
    });
}

void AppDelegate::applyMicrophone() {
    m_services->audioService->setPreferredInputDeviceID(UserSettings::shared().selectedMicrophoneId());
}

void AppDelegate::setupLaunchAtLogin() {
    if (!m_services->loginItem)
        return;
    m_launchAtLogin.emplace(*m_services->loginItem);
    const auto key = QStringLiteral("launchAtLogin");
    auto& settings = UserSettings::shared();
    const bool isChosen = settings.isStored(key);
    const bool chosen = settings.launchAtLogin();
    m_launchesAtLogin = m_launchAtLogin->reconcile(isChosen ? std::optional(chosen) : std::nullopt);
    if (isChosen && m_launchesAtLogin != chosen)
        settings.setValue(key, m_launchesAtLogin);
    QObject::connect(&settings, &UserSettings::changed, qApp, [this, key](const QString& changed) {
        const bool desired = UserSettings::shared().launchAtLogin();
        if (changed != key || desired == m_launchesAtLogin)
            return;
        m_launchesAtLogin = m_launchAtLogin->change(desired);
        // The setting says what is the case: the switch goes back where the desktop refused.
        if (m_launchesAtLogin != desired)
            UserSettings::shared().setValue(key, m_launchesAtLogin);
    });
}

void AppDelegate::hotkeyDown() {
    if (m_hotkeyObserver)
        m_hotkeyObserver(true);
    else
        send(action::StartRecording{});
}

void AppDelegate::hotkeyUp() {
    if (m_hotkeyObserver)
        m_hotkeyObserver(false);
    else
        send(action::StopRecording{});
}

void AppDelegate::setupHotkeys() {
    auto& hotkeys = *m_services->hotkeyService;
    hotkeys.onHotkeyDown = [this] { hotkeyDown(); };
    hotkeys.onHotkeyUp = [this] { hotkeyUp(); };
    hotkeys.onHandsOffModeChanged = [this](bool handsOff) { send(action::SetHandsOff{handsOff}); };
    hotkeys.onCancel = [this] {
        if (m_hotkeyObserver)
            m_hotkeyObserver(false);
        else
            send(action::CancelRecording{});
    };
    hotkeys.onConfigurationChanged = [] {
        log(QStringLiteral("[AppDelegate] Hotkey configuration changed, restarting service..."));
    };
    hotkeys.onKeysReturned = [this] {
        log(QStringLiteral("[AppDelegate] ✅ Accessibility granted, hotkey service restarted (running=%1)")
                .arg(m_services->hotkeyService->isRunning() ? 1 : 0));
    };
    hotkeys.start();
    if (!hotkeys.isRunning()) {
        log(QStringLiteral(
                "[AppDelegate] ⚠️ Accessibility not granted. Hotkeys will not work until permission is granted."),
            LogLevel::warn);
        log(QStringLiteral("[AppDelegate] A key of the desktop can be bound instead; the steps: quillo setup-key"));
        hotkeySetup::offerOnce();
    }
}

void AppDelegate::setupInterface() {
    m_interface = createUserInterface(*m_store, interfaceHooks(), std::move(m_statusItem));
}

void AppDelegate::startQueue() {
    m_queue = std::make_unique<PendingTranscriptionManager>(
        PendingQueueServices{*m_services->fileClient, *m_services->networkMonitor, *m_services->authService,
                             Preferences::shared(), m_clock});
    m_queue->start(m_history ? &m_history->mainContext() : nullptr);
    enforceStorageLimit();
}

void AppDelegate::observeNotifications() {
    QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted, qApp,
                     [this](const QString& name, const QVariantMap& userInfo) {
                         if (name == notification::authUserDidChange)
                             userDidChange();
                         else if (name == notification::pendingRecordRecovered)
                             recordDidRecover(userInfo.value(QStringLiteral("recordId")).toString());
                         else if (name == notification::userNotice)
                             tellUser(userInfo.value(QStringLiteral("message")).toString());
                     });
}

void AppDelegate::recordDidRecover(const QString& id) {
    try {
        if (const auto record = m_history->mainContext().record(QUuid(id)))
            TagManager::shared().applyAutoTag(record);
    } catch (const StoreError& error) {
        log(QStringLiteral("⚠️ A recovered record could not be tagged: %1").arg(error.message()), LogLevel::warn);
    }
    enforceStorageLimit();
}

void AppDelegate::enforceStorageLimit() {
    m_tasks.run(QStringLiteral("storage limit"),
                [](std::stop_token) { return AudioStorageManager::shared().enforceStorageLimitAsync(); });
}

void AppDelegate::tellUser(const QString& notice) {
    m_notices << notice;
    deliverNotices();
}

void AppDelegate::deliverNotices() {
    if (!m_interface)
        return; // what happens during the start is said at its end
    for (const auto& notice : std::exchange(m_notices, {})) {
        log(QStringLiteral("💬 ") + notice, LogLevel::warn);
        notifyDesktop(notice);
        if (!m_sideEffects->isBusy())
            send(action::ShowHint{{notice}});
    }
}

void AppDelegate::quit() {
    if (std::exchange(m_isQuitting, true))
        return;
    if (!m_sideEffects)
        return QApplication::quit();
    // Nothing may start a dictation any more; the one under way is put on the disk first.
    m_services->hotkeyService->stop();
    m_tasks.run(QStringLiteral("quit"), [this](std::stop_token) -> Task<> {
        co_await m_sideEffects->shutDown();
        QApplication::quit();
    });
}

RecordingPreferences AppDelegate::recordingPreferences() const {
    const auto& settings = UserSettings::shared();
    RecordingPreferences preferences;
    preferences.languages = settings.dictationLanguages();
    preferences.languageChosen = settings.hasChosenLanguage();
    preferences.playSound = settings.playSound();
    preferences.insertionMode = settings.insertionMode();
    preferences.restoreClipboard = settings.restoreClipboard();
    preferences.enhancedTranscription = settings.enhancedTranscriptionEnabled() && settings.hasValidEnhancedConsent();
    preferences.enhancedConsentTimestamp = settings.enhancedConsentTimestamp();
    preferences.demoMode = settings.useDemoMode();
    preferences.primaryLanguage = settings.primaryLanguage();
    preferences.secondaryLanguage = settings.secondaryLanguage();
    preferences.keepAudio = settings.keepAudio();
    preferences.isFirstRecording = settings.totalRecordingsCount() == 0;
    return preferences;
}

void AppDelegate::insertLastTextAgain() {
    m_tasks.run(QStringLiteral("insert again"), [this](std::stop_token) -> Task<> {
        auto& injection = *m_services->textInjectionService;
        const auto last = m_sideEffects->lastReport() ? m_sideEffects->lastReport()->text : QString();
        QString failure;
        try {
            if (!injection.lastUndelivered().isEmpty())
                co_await injection.insertAgain();
            else if (!last.isEmpty())
                co_await injection.inject(last, UserSettings::shared().insertionMode(),
                                          UserSettings::shared().restoreClipboard());
        } catch (const TextInjectionError& error) {
            failure = QString::fromUtf8(error.what());
        }
        if (!failure.isEmpty())
            send(action::ShowHint{{failure}});
    });
}

} // namespace quillo
