#pragma once

#include "App/Account/AccountSession.h"
#include "App/Dictation/Dictation.h"
#include "App/Dictation/DictationHotkeys.h"
#include "App/Dictation/SessionGuard.h"
#include "App/History/HistoryStartup.h"
#include "App/History/RecordingQueue.h"
#include "App/Interface/Notices.h"
#include "App/Remote/ControlService.h"
#include "App/System/InstanceLock.h"
#include "App/System/InterfaceAdapters.h"
#include "App/System/LoginItemSetting.h"
#include "App/System/PreferencesWatcher.h"
#include "App/System/ServedLanguages.h"
#include "App/System/ServerChoice.h"
#include "App/System/ServiceContainer.h"
#include "Features/Application/Commands.h"
#include "UI/UserInterface.h"

#include <functional>
#include <memory>
#include <optional>

namespace quillo {

/// The parts of the running application. A part may use those above it, and is destroyed before them; `startUp` gives
/// the order in which they are created. Without services, the members after `services` stay empty except `commands` and
/// `control`.
struct Application {
    SystemClock clock{EventExecutor::main()};
    TaskRunner tasks;
    std::function<void()> quit; ///< the implementation of `Commands::quit`
    InstanceLock instance;
    Notices notices;
    std::optional<PreferencesWatcher> preferencesWatcher;
    InterfaceAdapters adapters;
    std::optional<ServerChoice> server;
    std::unique_ptr<ModelContainer> history; ///< null when even a store in memory failed
    std::unique_ptr<ServiceContainer> services;
    std::optional<LastUser> lastUser;
    std::optional<ServedLanguages> servedLanguages;
    std::optional<LoginItemSetting> loginItem;
    std::optional<AccountSession> account;
    std::optional<RecordingQueue> queue;
    std::optional<Dictation> dictation;
    std::optional<DictationHotkeys> hotkeys;
    std::optional<SessionGuard> sessionGuard;
    std::unique_ptr<Commands> commands;
    std::unique_ptr<ControlService> control;
    std::unique_ptr<TrayHost> statusItem; ///< until the interface takes it
    std::unique_ptr<UserInterface> interface;

    [[nodiscard]] ModelContext* historyContext() const { return history ? &history->mainContext() : nullptr; }
};

} // namespace quillo
