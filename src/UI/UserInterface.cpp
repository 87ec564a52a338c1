#include "UI/UserInterface.h"

#include "Concurrency/Clock.h"
#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "UI/Account/AccountWindow.h"
#include "UI/Foundation/ApplicationIcon.h"
#include "UI/Foundation/Texts.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/Tray/TrayController.h"
#include "UI/Welcome/WelcomeWindow.h"

#include <QGuiApplication>

namespace quillo {

namespace {

/// Delay before loading the pill, so that the start can finish.
constexpr std::chrono::milliseconds prepareDelay{400};

class DesktopUserInterface final : public UserInterface {
public:
    DesktopUserInterface(RecordingStore& store, Commands& commands, UserInterfaceHooks hooks, WindowHints& hints,
                         std::unique_ptr<TrayHost> statusItem)
        : m_hooks(std::move(hooks)), m_clock(EventExecutor::main()),
          m_pillModel(store, m_clock, &Texts::lookUp, m_hooks.pillEnabled), m_pill(m_pillModel, m_host, m_hooks, hints),
          m_account(commands), m_tray(
                                   store, commands, m_hooks, &Texts::lookUp, m_account, [this] { showAccount(); },
                                   [this] { showLanguagePicker(); },
                                   statusItem ? std::move(statusItem) : std::make_unique<TrayHost>(hints)) {
        QGuiApplication::setWindowIcon(applicationIcon());
        // Closing the last window must not quit: the application stays in the panel.
        QGuiApplication::setQuitOnLastWindowClosed(false);
        m_tray.start();
        m_notifications =
            QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                             [this](const QString& name, const QVariantMap&) {
                                 if (name == notification::firstRecordingLanguageGateRequested)
                                     askForLanguage();
                                 else if (name == notification::showAuthWindow || name == notification::authRequired)
                                     askForAccount();
                             });
        QObject::connect(&m_account, &AccountModel::signInSucceeded, &m_windows, [this] { returnFromBrowser(); });
        m_preparation = m_clock.callLater(prepareDelay, [this] {
            if (!m_hooks.pillEnabled || m_hooks.pillEnabled())
                prepare();
        });
    }
    ~DesktopUserInterface() override { QObject::disconnect(m_notifications); }
    DesktopUserInterface(const DesktopUserInterface&) = delete;
    DesktopUserInterface& operator=(const DesktopUserInterface&) = delete;

    void prepare() override {
        m_preparation.reset();
        m_pill.prepare();
    }

    void showLanguagePicker() override {
        if (!m_hooks.listLanguages) {
            appLog(QStringLiteral("[UI] ⚠️ No languages to choose from"), LogLevel::warn, QStringLiteral("UI"));
            return;
        }
        show(m_languagePicker, [this] { return std::make_unique<LanguagePickerWindow>(m_host, m_hooks); });
    }

    void showWelcome() override {
        show(m_welcome, [this] {
            auto window = std::make_unique<WelcomeWindow>(m_host, m_hooks, m_account, m_clock);
            auto& steps = window->viewModel();
            steps.goTo(m_welcomeStep);
            QObject::connect(&steps, &WelcomeViewModel::stepChanged, [this, &steps] { m_welcomeStep = steps.step(); });
            QObject::connect(&steps, &WelcomeViewModel::finished, [this] { m_welcomeStep.clear(); });
            return window;
        });
    }

    void showAccount() override {
        m_account.refresh();
        show(m_accountWindow, [this] { return std::make_unique<AccountWindow>(m_host, m_account); });
    }

    void accountDidChange() override { m_account.refresh(); }

private:
    /// Creates a new window each time: its content may have changed, and a hidden window would take memory.
    template <class Window, class Make>
    void show(std::unique_ptr<Window>& window, Make make) {
        if (!window || !window->isVisible()) {
            window = make();
            // Destroy it later: the window is still active when it emits the signal.
            QObject::connect(
                window.get(), &DialogWindow::dismissed, &m_windows,
                [this, &window] {
                    if (!window || window->isVisible())
                        return;
                    window.reset();
                    m_host.trim();
                },
                Qt::QueuedConnection);
        }
        window->present();
    }

    void askForLanguage() {
        // The welcome asks the same question first.
        if (m_welcome && m_welcome->isVisible() && !m_welcome->viewModel().hasPassed(QStringLiteral("language")))
            return m_welcome->present();
        showLanguagePicker();
    }

    void askForAccount() {
        if (!m_welcome || !m_welcome->isVisible())
            return showAccount();
        // Do not skip steps if the user has not reached the account page yet.
        if (const auto step = QStringLiteral("account"); m_welcome->viewModel().hasPassed(step))
            m_welcome->viewModel().goTo(step);
        m_welcome->present();
    }

    /// After a sign-in the browser has the focus, so bring our window to the front.
    void returnFromBrowser() {
        for (DialogWindow* window :
             {static_cast<DialogWindow*>(m_welcome.get()), static_cast<DialogWindow*>(m_accountWindow.get())})
            if (window && window->isVisible())
                window->present();
    }

    UserInterfaceHooks m_hooks;
    SystemClock m_clock;
    QmlEngineHost m_host;
    PillViewModel m_pillModel;
    FloatingPill m_pill;
    AccountModel m_account;
    TrayController m_tray;
    QString m_welcomeStep; ///< the last step of the welcome
    std::unique_ptr<LanguagePickerWindow> m_languagePicker;
    std::unique_ptr<WelcomeWindow> m_welcome;
    std::unique_ptr<AccountWindow> m_accountWindow;
    QObject m_windows; ///< context for work that follows a window's own events
    QMetaObject::Connection m_notifications;
    Clock::TimerHandle m_preparation;
};

} // namespace

void configureRendering() {
    // A window with a few bars needs no graphics driver: the software renderer takes 37 MB, OpenGL 144 MB.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") && qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}

std::unique_ptr<TrayHost> createStatusItem(const WindowHints& hints) {
    auto item = std::make_unique<TrayHost>(hints);
    item->watch();
    return item;
}

std::unique_ptr<UserInterface> createUserInterface(RecordingStore& store, Commands& commands, UserInterfaceHooks hooks,
                                                   WindowHints& hints, std::unique_ptr<TrayHost> statusItem) {
    return std::make_unique<DesktopUserInterface>(store, commands, std::move(hooks), hints, std::move(statusItem));
}

} // namespace quillo
