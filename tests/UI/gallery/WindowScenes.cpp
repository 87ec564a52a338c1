#include "WindowScenes.h"

#include <QKeyEvent>

#include <cmath>

using namespace quillo;

namespace {

const AccountState anonymous{.kind = AccountState::Kind::anonymous};
const AccountState signedIn{.kind = AccountState::Kind::signedIn,
                            .name = QStringLiteral("Ada Lovelace"),
                            .email = QStringLiteral("ada@example.org")};

const QString steps = QStringLiteral("Sway. In ~/.config/sway/config, one of the two, then: swaymsg reload\n\n"
                                     "One press starts, the next stops:\n"
                                     "  bindsym --no-repeat F9 exec /usr/bin/quillo toggle\n\nHold to talk:\n"
                                     "  bindsym --no-repeat F9 exec /usr/bin/quillo start\n"
                                     "  bindsym --release --locked F9 exec /usr/bin/quillo stop\n");

void press(QWindow& window, int key) {
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
        QKeyEvent event(type, key, Qt::NoModifier);
        QCoreApplication::sendEvent(&window, &event);
    }
}

} // namespace

WindowGallery::WindowGallery(QmlEngineHost& host, test::FakeApplication& fakes, Clock& clock)
    : m_host(host), m_fakes(fakes), m_clock(clock) {
    m_fakes.hooks.hotkeySteps = [] { return steps; };
    QObject::connect(&m_levels, &QTimer::timeout, [this] {
        const auto time = static_cast<float>(++m_step) * 0.04F;
        if (m_fakes.isMicrophoneOpen)
            m_fakes.microphoneLevel(m_isSpeaking ? 0.2F + 0.6F * std::abs(std::sin(time * 5) * std::sin(time * 1.3F))
                                                 : 0.06F);
    });
    m_levels.start(std::chrono::milliseconds(40));
}

DialogWindow* WindowGallery::welcome(const QString& step) {
    m_accountWindow.reset();
    m_picker.reset();
    m_welcome = std::make_unique<WelcomeWindow>(m_host, m_fakes.hooks, m_account, m_clock);
    m_welcome->viewModel().goTo(step);
    m_welcome->present();
    return m_welcome.get();
}

DialogWindow* WindowGallery::account(const AccountState& state) {
    m_welcome.reset();
    changeAccount(state);
    m_accountWindow = std::make_unique<AccountWindow>(m_host, m_account);
    m_accountWindow->present();
    return m_accountWindow.get();
}

void WindowGallery::changeAccount(const AccountState& state) {
    m_fakes.accountState = state;
    m_account.refresh();
}

std::vector<WindowScene> WindowGallery::scenes() {
    const auto hotkey = QStringLiteral("hotkey");
    const auto microphone = QStringLiteral("microphone");
    const auto accountStep = QStringLiteral("account");
    const auto failing = [](AccountState state) {
        state.message =
            QStringLiteral("The browser could not be opened. Open https://quillo.example/auth/login there.");
        return state;
    };
    using std::chrono::milliseconds;
    return {
        {QStringLiteral("language-picker"),
         [this] {
             m_picker = std::make_unique<LanguagePickerWindow>(m_host, m_fakes.hooks);
             m_picker->present();
             return m_picker.get();
         }},
        {QStringLiteral("welcome-1-language"), [this] { return welcome(QStringLiteral("language")); }},
        {QStringLiteral("welcome-2-hotkey"), [=, this] { return welcome(hotkey); }},
        {QStringLiteral("welcome-2-hotkey-overdue"), [=, this] { return welcome(hotkey); },
         HotkeyTrial::patience + milliseconds(500)},
        {QStringLiteral("welcome-2-hotkey-held"),
         [=, this] {
             auto* window = welcome(hotkey);
             m_welcome->viewModel().setShown(true);
             m_fakes.hotkeyObserver(true);
             return window;
         }},
        {QStringLiteral("welcome-2-hotkey-works"),
         [this] {
             m_fakes.hotkeyObserver(false);
             return m_welcome.get();
         }},
        {QStringLiteral("welcome-2-hotkey-unavailable"),
         [=, this] {
             m_fakes.hotkey.clear();
             return welcome(hotkey);
         }},
        {QStringLiteral("welcome-3-microphone-quiet"), [=, this] { return welcome(microphone); },
         MicrophoneTest::patience + milliseconds(700)},
        {QStringLiteral("welcome-3-microphone-listening"), [=, this] { return welcome(microphone); }},
        {QStringLiteral("welcome-3-microphone-heard"),
         [this] {
             m_isSpeaking = true;
             return m_welcome.get();
         },
         milliseconds(3000)},
        {QStringLiteral("welcome-3-microphone-failed"),
         [this] {
             m_fakes.microphoneFailure(QStringLiteral("No sound server answers: connection refused."));
             return m_welcome.get();
         }},
        {QStringLiteral("welcome-4-account"),
         [=, this] {
             m_fakes.hotkey = QStringLiteral("Right Super");
             return welcome(accountStep);
         }},
        {QStringLiteral("welcome-4-account-waiting"),
         [this] {
             m_account.signIn();
             return m_welcome.get();
         }},
        {QStringLiteral("welcome-4-account-failed"),
         [=, this] {
             changeAccount(failing(anonymous));
             return m_welcome.get();
         }},
        {QStringLiteral("welcome-4-account-signed-in"),
         [this] {
             changeAccount(signedIn);
             return m_welcome.get();
         }},
        {QStringLiteral("welcome-5-ready"), [this] { return welcome(QStringLiteral("ready")); }},
        {QStringLiteral("account-none"), [this] { return account({}); }},
        {QStringLiteral("account-anonymous"), [this] { return account(anonymous); }},
        {QStringLiteral("account-failed"), [=, this] { return account(failing(anonymous)); }},
        {QStringLiteral("account-waiting"),
         [this] {
             m_account.signIn();
             return m_accountWindow.get();
         }},
        {QStringLiteral("account-signed-in"), [this] { return account(signedIn); }},
        {QStringLiteral("account-delete"),
         [this] {
             for (const auto key : {Qt::Key_Tab, Qt::Key_Tab, Qt::Key_Return})
                 press(*m_accountWindow, key);
             return m_accountWindow.get();
         }},
        {QStringLiteral("account-busy"),
         [this] {
             m_account.deleteAccount();
             return m_accountWindow.get();
         }},
    };
}
