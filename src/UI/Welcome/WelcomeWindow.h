#pragma once

#include "UI/Welcome/WelcomeViewModel.h"
#include "UI/Window/DialogWindow.h"

namespace quillo {

/// Leads through the first start, step by step. Keyboard: Tab, Return for the next step, Alt+Left for the one before,
/// Escape to leave and go on another time.
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
