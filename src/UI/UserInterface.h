#pragma once

#include "Features/Application/Commands.h"
#include "Features/Recording/RecordingStore.h"
#include "Platform/WindowHints.h"
#include "UI/Foundation/UserInterfaceHooks.h"
#include "UI/Tray/TrayHost.h"

#include <memory>

namespace quillo {

/// Everything the user sees: tray icon, floating pill, windows. Main thread only.
class UserInterface {
public:
    virtual ~UserInterface() = default;

    /// Loads the pill ahead of its first use, so that the first dictation does not wait for it. Done by itself shortly
    /// after start; calling it again changes nothing.
    virtual void prepare() = 0;
    /// Opens the list of dictation languages; the choice goes to `selectLanguage`.
    virtual void showLanguagePicker() = 0;
    /// Opens the welcome, at the step where it was left, or brings it to the front.
    virtual void showWelcome() = 0;
    /// Opens the account's window or brings it to the front. Done by itself on `showAuthWindow` and `authRequired`,
    /// unless the welcome is open: that comes to the front instead, back at its account step when it was past it.
    virtual void showAccount() = 0;
    /// To be called whenever the answer of `Commands::account` may have changed.
    virtual void accountDidChange() = 0;
};

/// To be called before the QApplication is made: chooses the software renderer, which costs a third of the memory of
/// the OpenGL one, unless the user's environment names a renderer.
void configureRendering();

/// Begins to look for a place in the panel; the interface takes it over. `hints` must outlive it. Needs a QApplication.
[[nodiscard]] std::unique_ptr<TrayHost> createStatusItem(const WindowHints& hints);

/// Builds the interface. `store`, `commands` and `hints` must outlive it. Needs a QApplication. Without a host for tray
/// icons the application goes on without one and the icon appears when a host does.
[[nodiscard]] std::unique_ptr<UserInterface> createUserInterface(RecordingStore& store, Commands& commands,
                                                                 UserInterfaceHooks hooks, WindowHints& hints,
                                                                 std::unique_ptr<TrayHost> statusItem = nullptr);

} // namespace quillo
