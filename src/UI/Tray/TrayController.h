#pragma once

#include "Features/Application/Commands.h"
#include "Features/Recording/RecordingStore.h"
#include "UI/Account/AccountModel.h"
#include "UI/Foundation/UserInterfaceHooks.h"
#include "UI/Tray/TrayHost.h"
#include "UI/Tray/TrayPresentation.h"

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>

#include <memory>

namespace quillo {

/// The icon in the panel and its menu. Without a host the application runs without the icon, which appears once there
/// is a host.
class TrayController final : public QObject {
    Q_OBJECT
public:
    /// The references must outlive the controller. `showAccount` opens the account window, `showLanguages` the list of
    /// all dictation languages. `host` may already be looking for its place.
    TrayController(RecordingStore& store, Commands& commands, const UserInterfaceHooks& hooks, Translate translate,
                   const AccountModel& account, std::function<void()> showAccount, std::function<void()> showLanguages,
                   std::unique_ptr<TrayHost> host);
    ~TrayController() override;

    /// Looks for a host and shows the icon when there is one.
    void start();
    /// Whether the icon has been handed to a host.
    [[nodiscard]] bool isShown() const { return m_icon != nullptr; }
    /// The menu; exists also without a host.
    [[nodiscard]] QMenu& menu() { return m_menu; }

private:
    void build();
    void buildMicrophones();
    void buildLanguages();
    void showIcon();
    void present(const RecordingState& state);
    void presentAccount();
    /// Shows or hides the entry about a hotkey that another program holds.
    void presentConflict();
    QMenu* addSubmenu(const QString& key);
    /// Takes all texts again, in the language that is the interface's now.
    void translateAgain();
    QAction* addEntry(const QString& key, std::function<void()> perform);
    void addApplicationEntries();

    RecordingStore& m_store;
    Commands& m_commands;
    const UserInterfaceHooks& m_hooks;
    Translate m_translate;
    const AccountModel& m_account;
    std::function<void()> m_showAccount;
    std::function<void()> m_showLanguages;
    std::unique_ptr<TrayHost> m_host;
    QMenu m_menu;
    QMenu* m_microphones = nullptr;
    QMenu* m_languages = nullptr;
    QAction* m_toggle = nullptr;
    QAction* m_cancel = nullptr;
    QAction* m_insertAgain = nullptr;
    QAction* m_accountEntry = nullptr;
    QAction* m_conflict = nullptr;
    QAction* m_takeFree = nullptr;
    TrayPresentation m_shown;
    std::unique_ptr<QSystemTrayIcon> m_icon; // after the menu it refers to
    Observation m_observation;
};

} // namespace quillo
