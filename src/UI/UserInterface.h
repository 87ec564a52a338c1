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

    /// Loads the pill before its first use, so that the first dictation does not wait for it. Runs automatically
    /// shortly after start; idempotent.
    virtual void prepare() = 0;
    /// Opens the list of dictation languages; the choice goes to `selectLanguage`.
    virtual void showLanguagePicker() = 0;
    /// Opens the welcome at its last step, or brings it to the front.
    virtual void showWelcome() = 0;
    /// Opens the account window or brings it to the front. Happens automatically on `showAuthWindow` and
    /// `authRequired`, unless the welcome is open: then the welcome comes to the front, and returns to its account step
    /// if it was past it.
    virtual void showAccount() = 0;
    /// Call it whenever the result of `Commands::account` may have changed.
    virtual void accountDidChange() = 0;
};

/// Call it before creating the QApplication: selects the software renderer, which needs a third of the memory of the
/// OpenGL one, unless the environment names a renderer.
void configureRendering();

/// Starts to look for a place in the panel; the interface takes over the object. `hints` must outlive it. Needs a
/// QApplication.
[[nodiscard]] std::unique_ptr<TrayHost> createStatusItem(const WindowHints& hints);

/// Builds the interface. `store`, `commands` and `hints` must outlive it. Needs a QApplication. Without a host for tray
/// icons the application runs without one, and the icon appears once there is a host.
[[nodiscard]] std::unique_ptr<UserInterface> createUserInterface(RecordingStore& store, Commands& commands,
                                                                 UserInterfaceHooks hooks, WindowHints& hints,
                                                                 std::unique_ptr<TrayHost> statusItem = nullptr);

} // namespace quillo
