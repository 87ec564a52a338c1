#include "UI/Welcome/WelcomeWindow.h"

namespace quillo {

WelcomeWindow::WelcomeWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks, AccountModel& account, Clock& clock)
    : DialogWindow(QStringLiteral("welcome.title")), m_viewModel(hooks, account, clock) {
    fill(host, QStringLiteral("Welcome/Welcome.qml"),
         {{QStringLiteral("welcome"), &m_viewModel},
          {QStringLiteral("languages"), &m_viewModel.languages()},
          {QStringLiteral("hotkey"), &m_viewModel.hotkey()},
          {QStringLiteral("microphone"), &m_viewModel.microphone()},
          {QStringLiteral("account"), &account},
          {QStringLiteral("dialog"), this}});
    connect(&m_viewModel, &WelcomeViewModel::finished, this, &DialogWindow::dismiss);
    // Some platforms send no expose event when the window is hidden.
    connect(this, &DialogWindow::dismissed, this, [this] { m_viewModel.setShown(false); });
}

WelcomeWindow::~WelcomeWindow() { clear(); }

void WelcomeWindow::exposeEvent(QExposeEvent* event) {
    DialogWindow::exposeEvent(event);
    // A minimised window and one on another desktop are not exposed.
    m_viewModel.setShown(isExposed());
}

} // namespace quillo
