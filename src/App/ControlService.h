#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace quillo {

/// What the remote control may ask of the application; called on the main thread.
struct ControlHooks {
    // Each of the commands may throw an exception whose text is for the user.
    std::function<void()> start; ///< begins a dictation; nothing when one runs
    std::function<void()> stop;  ///< ends and delivers it; nothing when none runs
    std::function<void()> toggle;
    std::function<void()> cancel;
    std::function<void()> show;
    std::function<void()> quit;
    std::function<void()> insertAgain;
    std::function<QString()> status; ///< a JSON object
    // Each answers with text to print; throws SettingsError.
    std::function<QString(const QString& key)> getSetting;
    std::function<void(const QString& key, const QString& value)> setSetting;
    std::function<QString()> listSettings;
    // On the record with this id; each throws an exception whose text is for the user. Those that are missing are
    // refused: there is no history then.
    std::function<void(const QString& id)> historyDelete;
    /// An empty language means the one it was recorded with.
    std::function<void(const QString& id, const QString& language)> historyRetranscribe;
    std::function<void(const QString& id)> historyCopy;
    // The account.
    std::function<QString()> account; ///< in words
    std::function<void()> signIn;
    std::function<void()> registerAccount;
    std::function<void()> cancelSignIn;
    std::function<void()> signOut;
    std::function<void(const QString& url)> openURL; ///< of the application's own scheme
};

/// The D-Bus object behind `quillo start`, `stop` and the rest, and the lock of the single instance.
class ControlService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.quillo.Quillo1")
public:
    enum class Registration { registered, alreadyRunning, noBus };

    explicit ControlService(ControlHooks hooks);

    /// Takes the name on the session bus. Without a bus the application runs and cannot be controlled from outside.
    Registration registerOnBus();

public Q_SLOTS:
    Q_SCRIPTABLE void Start() { perform(m_hooks.start); }
    Q_SCRIPTABLE void Stop() { perform(m_hooks.stop); }
    Q_SCRIPTABLE void Toggle() { perform(m_hooks.toggle); }
    Q_SCRIPTABLE void Cancel() { perform(m_hooks.cancel); }
    Q_SCRIPTABLE void Show() { perform(m_hooks.show); }
    Q_SCRIPTABLE void InsertAgain() { perform(m_hooks.insertAgain); }
    Q_SCRIPTABLE void Quit();
    Q_SCRIPTABLE QString Status() { return m_hooks.status(); }
    Q_SCRIPTABLE QString GetSetting(const QString& key);
    Q_SCRIPTABLE void SetSetting(const QString& key, const QString& value);
    Q_SCRIPTABLE QString ListSettings() { return m_hooks.listSettings(); }
    Q_SCRIPTABLE void HistoryDelete(const QString& id);
    Q_SCRIPTABLE void HistoryRetranscribe(const QString& id, const QString& language);
    Q_SCRIPTABLE void HistoryCopy(const QString& id);
    Q_SCRIPTABLE QString Account() { return m_hooks.account(); }
    Q_SCRIPTABLE void SignIn() { perform(m_hooks.signIn); }
    Q_SCRIPTABLE void Register() { perform(m_hooks.registerAccount); }
    Q_SCRIPTABLE void CancelSignIn() { perform(m_hooks.cancelSignIn); }
    Q_SCRIPTABLE void SignOut() { perform(m_hooks.signOut); }

private:
    void runAction(const QString& name);
    void perform(const std::function<void()>& hook);
    void replyWithError(const std::exception& error);
    template <typename Hook, typename... Arguments>
    void onHistory(const Hook& hook, const Arguments&... arguments);

    ControlHooks m_hooks;
};

} // namespace quillo
