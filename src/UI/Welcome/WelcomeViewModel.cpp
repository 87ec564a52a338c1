#include "UI/Welcome/WelcomeViewModel.h"

namespace quillo {

namespace {

const QString languageStep = QStringLiteral("language");
const QString hotkeyStep = QStringLiteral("hotkey");
const QString microphoneStep = QStringLiteral("microphone");
const QString accountStep = QStringLiteral("account");
const QString readyStep = QStringLiteral("ready");

} // namespace

WelcomeViewModel::WelcomeViewModel(const UserInterfaceHooks& hooks, AccountModel& account, Clock& clock)
    : m_hooks(hooks), m_account(account), m_languages(hooks.listLanguages ? hooks.listLanguages() : InterfaceChoices()),
      m_hotkey(hooks, clock), m_microphone(hooks, clock) {
    const auto add = [this](bool offered, const QString& step) {
        if (offered)
            m_steps.push_back(step);
    };
    add(hooks.listLanguages && hooks.selectLanguage, languageStep);
    add(!m_hotkey.name().isEmpty() || !m_hotkey.steps().isEmpty(), hotkeyStep);
    add(hooks.startMicrophoneTest && hooks.stopMicrophoneTest, microphoneStep);
    add(true, accountStep);
    add(true, readyStep);
    if (hooks.followLanguages)
        hooks.followLanguages(this, [this] { m_languages.setServed(m_hooks.listLanguages()); });
}

WelcomeViewModel::~WelcomeViewModel() = default;

void WelcomeViewModel::setShown(bool shown) {
    if (shown == m_isShown)
        return;
    m_isShown = shown;
    run();
}

void WelcomeViewModel::goTo(const QString& step) {
    if (const auto found = std::ranges::find(m_steps, step); found != m_steps.end())
        moveTo(static_cast<size_t>(found - m_steps.begin()));
}

bool WelcomeViewModel::hasPassed(const QString& step) const {
    const auto current = m_steps.begin() + static_cast<std::ptrdiff_t>(m_index);
    return std::find(m_steps.begin(), current, step) != current;
}

void WelcomeViewModel::next() {
    if (!isLast())
        return moveTo(m_index + 1);
    if (m_hooks.finishOnboarding)
        m_hooks.finishOnboarding();
    Q_EMIT finished();
}

void WelcomeViewModel::back() {
    if (!isFirst())
        moveTo(m_index - 1);
}

void WelcomeViewModel::moveTo(size_t index) {
    if (index == m_index)
        return;
    m_index = index;
    run();
    Q_EMIT stepChanged();
}

void WelcomeViewModel::run() {
    const auto isRunning = [this](const QString& name) { return m_isShown && step() == name; };
    if (isRunning(hotkeyStep))
        m_hotkey.begin();
    else
        m_hotkey.end();
    if (isRunning(microphoneStep))
        m_microphone.begin();
    else
        m_microphone.end();
}

void WelcomeViewModel::chooseLanguage(const QString& code) {
    if (code.isEmpty())
        return;
    m_hooks.selectLanguage(code);
    m_languages.setCurrent(code);
}

void WelcomeViewModel::setLaunchAtLogin(bool launch) {
    if (!isLaunchAtLoginOffered())
        return;
    m_hooks.setLaunchAtLogin(launch);
    // The view reads the value back, because the desktop may have refused the change.
    Q_EMIT launchAtLoginChanged();
}

} // namespace quillo
