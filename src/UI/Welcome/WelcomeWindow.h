#pragma once

#include "UI/Welcome/WelcomeViewModel.h"
#include "UI/Window/DialogWindow.h"

namespace quillo {

/// Guides the user through the first start. Keyboard: Tab, Return for the next step, Alt+Left for the previous one,
/// Escape to close and continue another time.
class WelcomeWindow final : public DialogWindow {
    Q_OBJECT
public:
    /// The references must outlive the window.
    WelcomeWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks, AccountModel& account, Clock& clock);
    ~WelcomeWindow() override;

    [[nodiscard]] WelcomeViewModel& viewModel() { return m_viewModel; }

protected:
    void exposeEvent(QExposeEvent* event) override;

private:
    WelcomeViewModel m_viewModel;
};

} // namespace quillo
