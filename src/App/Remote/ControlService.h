#pragma once

#include "Features/Application/Commands.h"

#include <QDBusContext>
#include <QObject>
#include <QString>

#include <functional>

namespace quillo {

/// The D-Bus object behind `quillo start`, `stop` and the rest, and the lock of the single instance. If a command
/// throws, the caller gets the error's text. Main thread.
class ControlService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.quillo.Quillo1")
public:
    enum class Registration { registered, alreadyRunning, noBus };

    /// `commands` must outlive the service.
    /// `isServed` says whether the server in use understands a language; empty when nothing is known of it.
    explicit ControlService(Commands& commands, std::function<bool(const QString& language)> isServed = {});

    /// Takes the name on the session bus. Without a bus the application runs, but cannot be controlled from outside.
    Registration registerOnBus();

public Q_SLOTS:
    Q_SCRIPTABLE void Start() { perform(&Commands::start); }
    Q_SCRIPTABLE void Stop() { perform(&Commands::stop); }
    Q_SCRIPTABLE void Toggle() { perform(&Commands::toggle); }
    Q_SCRIPTABLE void Cancel() { perform(&Commands::cancel); }
    Q_SCRIPTABLE void Show() { perform(&Commands::show); }
    Q_SCRIPTABLE void InsertAgain() { perform(&Commands::insertAgain); }
    Q_SCRIPTABLE void Quit();
    Q_SCRIPTABLE QString Status() { return m_commands.status(); }
    Q_SCRIPTABLE QString GetSetting(const QString& key);
    Q_SCRIPTABLE void SetSetting(const QString& key, const QString& value);
    /// Also a language that the server in use does not understand.
    Q_SCRIPTABLE void ForceSetting(const QString& key, const QString& value);
    Q_SCRIPTABLE QString ListSettings();
    Q_SCRIPTABLE void HistoryDelete(const QString& id);
    Q_SCRIPTABLE void HistoryRetranscribe(const QString& id, const QString& language);
    Q_SCRIPTABLE void HistoryCopy(const QString& id);
    Q_SCRIPTABLE QString Account();
    Q_SCRIPTABLE void SignIn() { perform(&Commands::signIn); }
    Q_SCRIPTABLE void Register() { perform(&Commands::registerAccount); }
    Q_SCRIPTABLE void CancelSignIn() { perform(&Commands::cancelSignIn); }
    Q_SCRIPTABLE void SignOut() { perform(&Commands::signOut); }

private:
    void runAction(const QString& name);
    /// Runs `command`; an error becomes the answer to the current call, if there is one.
    void answer(const std::function<void()>& command);
    void perform(void (Commands::*command)()) {
        answer([&] { (m_commands.*command)(); });
    }

    Commands& m_commands;
    std::function<bool(const QString& language)> m_isServed;
};

} // namespace quillo
