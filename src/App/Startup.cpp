// The launch: `startUp` at the end of the file gives the order, the functions before it are its steps.

#include "App/Startup.h"

#include "App/Application.h"
#include "App/Commands/ApplicationCommands.h"
#include "App/Commands/UnavailableCommands.h"
#include "App/Interface/HotkeySetup.h"
#include "App/Interface/InterfaceHooks.h"
#include "App/System/PreferenceMigrations.h"
#include "Core/Log.h"
#include "Data/TagManager.h"
#include "Localization/LocalizationManager.h"

#include <QCoreApplication>
#include <QStandardPaths>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("App")); }

void showStatusItem(Application& app) {
    app.adapters = InterfaceAdapters::create();
    app.statusItem = createStatusItem(*app.adapters.windowHints);
    log(QStringLiteral("✅ Basic status item created in menu bar"));
    log(QStringLiteral("✅ Quillo launched, basic menu bar ready"));
}

/// Throws std::exception.
void buildServices(Application& app) {
    app.server.emplace(app.clock);
    const auto& environment = app.server->environment();
    log(QStringLiteral("[ServiceContainer] Server host: %1").arg(environment.host()));
    log(QStringLiteral("[ServiceContainer] WebSocket endpoint: %1").arg(environment.wsTranscribeURL().toString()));
    app.lastUser.emplace(Preferences::shared(), environment.identity());
    app.lastUser->applyTo(UserSettings::shared());
    app.services = std::make_unique<ServiceContainer>(app.clock, UserSettings::shared(), environment,
                                                      [&app](const QUrl& url) { return app.server->current(url); });
    auto health = environment.webBaseURL();
    health.setPath(QStringLiteral("/health"));
    app.servedLanguages.emplace(health, app.services->prepareRequest, app.clock, app.tasks);
    log(QStringLiteral("[AppDelegate] Services initialized via ServiceContainer"));
}

/// The program then only reports the problem and can be ended. False when another instance runs already.
bool goOnWithoutServices(Application& app, const QString& reason) {
    log(reason, LogLevel::error);
    log(QStringLiteral("[AppDelegate] ⚠️ setupStore called but serviceContainer is nil — skipping"), LogLevel::warn);
    app.commands = std::make_unique<UnavailableCommands>(reason, [&app] { app.quit(); });
    app.control = std::make_unique<ControlService>(*app.commands);
    if (app.control->registerOnBus() == ControlService::Registration::alreadyRunning)
        return false;
    app.adapters.notifications->show(reason);
    return true;
}

void setupAccount(Application& app) {
    auto& services = *app.services;
    app.account.emplace(
        *services.authService, services.keychain.get(), UserSettings::shared(), *app.lastUser, app.clock, app.tasks,
        AccountSession::Hooks{.accountDidChange =
                                  [&app] {
                                      if (app.interface)
                                          app.interface->accountDidChange();
                                  },
                              .showWelcome = [&app] { app.interface->showWelcome(); },
                              // Without a user nothing can be sent; the queue checks again when one signs in.
                              .sessionDidSettle = [&app] { app.queue->start(); },
                              .dropConnection =
                                  [&app] {
                                      if (!app.dictation->effects().isBusy())
                                          app.tasks.run(QStringLiteral("disconnect"), [&app](std::stop_token) {
                                              return app.services->webSocketService->disconnect();
                                          });
                                  }});
}

void setupStore(Application& app) {
    app.services->textInjectionService->onSecretsUnknown = [&app](const QString& application) {
        app.notices.add(UserMessage{QStringLiteral("injection.secretsUnknown"), {application}});
    };
    auto* history = app.historyContext();
    app.queue.emplace(*app.services, history, app.clock, app.tasks);
    app.dictation.emplace(*app.services, UserSettings::shared(), app.clock, app.tasks,
                          history ? ArchiveStores{history, &TagManager::shared()} : ArchiveStores{},
                          [&app] { app.queue->enforceStorageLimit(); });
}

void setupCommands(Application& app) {
    app.commands = std::make_unique<ApplicationCommands>(
        ApplicationCommands::Parts{.services = *app.services,
                                   .store = app.dictation->store(),
                                   .effects = app.dictation->effects(),
                                   .account = app.account->controller(),
                                   .tasks = app.tasks,
                                   .history = app.historyContext(),
                                   .queue = [&app] { return app.queue->manager(); },
                                   .serverHost = [&app] { return app.server->host(); },
                                   .show = [&app] { app.interface->showWelcome(); },
                                   .quit = [&app] { app.quit(); }});
    app.control = std::make_unique<ControlService>(
        *app.commands, [&app](const QString& language) { return app.servedLanguages->understands(language); });
}

void setupHotkeys(Application& app) {
    app.hotkeys.emplace(*app.services->hotkeyService, *app.dictation);
    if (!app.hotkeys->arm())
        hotkeySetup::offerOnce(*app.adapters.notifications);
    auto* const watch = app.services->sessionWatch.get();
    if (!watch)
        return;
    app.sessionGuard.emplace(*watch, *app.services->hotkeyService, *app.dictation,
                             [&app] { app.notices.add(UserMessage{QStringLiteral("notice.userLeft")}); });
    app.hotkeys->refuseWhile([watch] { return watch->isAway(); });
}

void setupInterface(Application& app) {
    app.interface = createUserInterface(app.dictation->store(), *app.commands,
                                        interfaceHooks({*app.services, UserSettings::shared(), *app.dictation,
                                                        *app.hotkeys, *app.account, *app.servedLanguages, app.tasks}),
                                        *app.adapters.windowHints, std::move(app.statusItem));
}

/// Shows the welcome to a new user, and starts the session check in any case.
void openFirstWindow(Application& app) {
    app.account->sessionCheck().scheduleFallback();
    // Post it after the work for a first dictation, because loading a window takes time.
    EventExecutor::main().post([&app] {
        if (!UserSettings::shared().onboardingCompleted())
            app.interface->showWelcome();
        app.account->sessionCheck().checkSession();
    });
}

void deliverNotices(Application& app) {
    if (app.server->problem())
        app.notices.add(*app.server->problem());
    app.notices.deliverTo(*app.adapters.notifications, [&app](const QString& notice) {
        if (!app.dictation->effects().isBusy())
            app.dictation->send(action::ShowHint{{notice}});
    });
}

} // namespace

bool startUp(Application& app) {
    log(QStringLiteral("🚀 Application launching..."));
    if (!app.instance.acquire())
        return false;
    PreferenceMigrations migrations(Preferences::shared(),
                                    QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    migrations.copyLegacyDefaults();
    app.history = openHistory(QCoreApplication::arguments());
    showStatusItem(app);
    UserSettings::shared().runMigrations();
    try {
        buildServices(app);
    } catch (const std::exception& error) {
        return goOnWithoutServices(app, LocalizationManager::shared().t(error));
    }
    setupAccount(app);
    setupStore(app);
    setupCommands(app);
    // Only now: clients may send commands as soon as the name appears, so the store must exist.
    if (app.control->registerOnBus() == ControlService::Registration::alreadyRunning)
        return false;
    migrations.keepFunctionKeyOfExistingUser();
    migrations.dropShiftBackquote();
    setupHotkeys(app);
    // From here on nothing delays a first dictation.
    setupInterface(app);
    app.server->start();
    if (!ServiceContainer::usesMockServices())
        app.servedLanguages->ask();
    if (app.services->loginItem)
        app.loginItem.emplace(*app.services->loginItem, UserSettings::shared());
    app.services->networkMonitor->startMonitoring();
    app.preferencesWatcher.emplace(Preferences::shared());
    openFirstWindow(app);
    deliverNotices(app);
    return true;
}

} // namespace quillo
