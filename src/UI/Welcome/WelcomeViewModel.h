#pragma once

#include "UI/Account/AccountModel.h"
#include "UI/Language/LanguageListModel.h"
#include "UI/Welcome/HotkeyTrial.h"
#include "UI/Welcome/MicrophoneTest.h"

namespace quillo {

/// The steps of the welcome and what runs in each. A step whose hooks are missing is left out. Each choice is stored at
/// once, so that leaving early loses nothing. Main thread only.
class WelcomeViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString step READ step NOTIFY stepChanged)
    Q_PROPERTY(int index READ index NOTIFY stepChanged)
    Q_PROPERTY(int count READ count CONSTANT)
    Q_PROPERTY(bool first READ isFirst NOTIFY stepChanged)
    Q_PROPERTY(bool last READ isLast NOTIFY stepChanged)
    Q_PROPERTY(bool launchAtLoginOffered READ isLaunchAtLoginOffered CONSTANT)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)

public:
    /// The references must outlive the view model.
    WelcomeViewModel(const UserInterfaceHooks& hooks, AccountModel& account, Clock& clock);
    ~WelcomeViewModel() override;

    /// "language", "hotkey", "microphone", "account" or "ready".
    [[nodiscard]] QString step() const { return m_steps[m_index]; }
    [[nodiscard]] int index() const { return static_cast<int>(m_index); }
    [[nodiscard]] int count() const { return static_cast<int>(m_steps.size()); }
    [[nodiscard]] bool isFirst() const { return m_index == 0; }
    [[nodiscard]] bool isLast() const { return m_index + 1 == m_steps.size(); }

    [[nodiscard]] LanguageListModel& languages() { return m_languages; }
    [[nodiscard]] HotkeyTrial& hotkey() { return m_hotkey; }
    [[nodiscard]] MicrophoneTest& microphone() { return m_microphone; }
    [[nodiscard]] AccountModel& account() { return m_account; }

    /// Whether the user sees the steps: the key's trial and the microphone's test run only then.
    void setShown(bool shown);
    /// Goes to the step with this name; does nothing when the step is left out.
    void goTo(const QString& step);
    /// Whether the step with this name is completed.
    [[nodiscard]] bool hasPassed(const QString& step) const;
    /// Goes to the next step; after the last one, reports the end of the welcome to the application.
    Q_INVOKABLE void next();
    Q_INVOKABLE void back();
    /// Stores the dictation language; does nothing for an empty code.
    Q_INVOKABLE void chooseLanguage(const QString& code);

    [[nodiscard]] bool isLaunchAtLoginOffered() const { return m_hooks.launchAtLogin && m_hooks.setLaunchAtLogin; }
    [[nodiscard]] bool launchAtLogin() const { return isLaunchAtLoginOffered() && m_hooks.launchAtLogin(); }
    void setLaunchAtLogin(bool launch);

Q_SIGNALS:
    void stepChanged();
    void launchAtLoginChanged();
    void finished();

private:
    void moveTo(size_t index);
    void run();

    const UserInterfaceHooks& m_hooks;
    AccountModel& m_account;
    LanguageListModel m_languages;
    HotkeyTrial m_hotkey;
    MicrophoneTest m_microphone;
    std::vector<QString> m_steps;
    size_t m_index = 0;
    bool m_isShown = false;
};

} // namespace quillo
