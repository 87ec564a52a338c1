#include "UI/UserInterface.h"

#include "Concurrency/Clock.h"
#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/Pill/FloatingPill.h"
#include "UI/Texts.h"
#include "UI/Tray/TrayController.h"
#include "UI/Tray/TrayIcons.h"

#include <QGuiApplication>

namespace quillo {

namespace {

/// Time for the start to finish before the pill is loaded.
constexpr std::chrono::milliseconds prepareDelay{400};

class DesktopUserInterface final : public UserInterface {
public:
    DesktopUserInterface(RecordingStore& store, UserInterfaceHooks hooks)
        : m_hooks(std::move(hooks)), m_clock(EventExecutor::main()),
          m_pillModel(store, m_clock, &Texts::lookUp, m_hooks.pillEnabled), m_pill(m_pillModel, m_host, m_hooks),
          m_tray(store, m_hooks, &Texts::lookUp) {
        QGuiApplication::setWindowIcon(applicationIcon());
        // The last window that closes is not the end: the application lives in the panel.
        QGuiApplication::setQuitOnLastWindowClosed(false);
        m_tray.start();
        m_notifications = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                           [this](const QString& name, const QVariantMap&) {
                                               if (name == notification::firstRecordingLanguageGateRequested)
                                                   showLanguagePicker();
                                           });
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
        // Made anew each time: the list and the current language may have changed.
        if (!m_languagePicker || !m_languagePicker->isVisible())
            m_languagePicker = std::make_unique<LanguagePickerWindow>(m_host, m_hooks);
        m_languagePicker->present();
    }

    void showWelcome() override {}
    void showAccount() override {}
    void accountDidChange() override {}

private:
    UserInterfaceHooks m_hooks;
    SystemClock m_clock;
    QmlEngineHost m_host;
    PillViewModel m_pillModel;
    FloatingPill m_pill;
    TrayController m_tray;
    std::unique_ptr<LanguagePickerWindow> m_languagePicker;
    QMetaObject::Connection m_notifications;
    Clock::TimerHandle m_preparation;
};

} // namespace

void configureRendering() {
    // A plain window of a few bars needs no graphics driver: the software renderer takes 37 MB where OpenGL takes 144.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") && qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}

std::unique_ptr<UserInterface> createUserInterface(RecordingStore& store, UserInterfaceHooks hooks) {
    return std::make_unique<DesktopUserInterface>(store, std::move(hooks));
}

} // namespace quillo
