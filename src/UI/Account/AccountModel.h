#pragma once

#include "Features/Application/Commands.h"

#include <QObject>

namespace quillo {

/// The account as properties, for its window, the welcome and the menu. Lives as long as the interface, so that a
/// window closed and reopened still shows the operation under way. Main thread only.
class AccountModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString phase READ phase NOTIFY changed)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString detail READ detail NOTIFY changed)
    Q_PROPERTY(QString initial READ initial NOTIFY changed)
    Q_PROPERTY(QString message READ message NOTIFY changed)
    Q_PROPERTY(bool signedIn READ isSignedIn NOTIFY changed)

public:
    /// `commands` must outlive the model.
    explicit AccountModel(Commands& commands);

    /// "none", "anonymous", "signedIn", "expired", "waiting" for the browser, or "busy" with anything else.
    [[nodiscard]] QString phase() const;
    /// The signed-in user in one line: the name, otherwise the e-mail address; or a placeholder when signed out.
    [[nodiscard]] QString title() const;
    /// The e-mail address unless it is the title.
    [[nodiscard]] QString detail() const;
    /// The first letter of the title, for the badge; empty without an account.
    [[nodiscard]] QString initial() const;
    [[nodiscard]] QString message() const;
    [[nodiscard]] bool isSignedIn() const { return m_state.kind == AccountState::Kind::signedIn; }

    Q_INVOKABLE void signIn();
    Q_INVOKABLE void registerAccount();
    Q_INVOKABLE void cancel();
    Q_INVOKABLE void signOut();
    /// The user has confirmed.
    Q_INVOKABLE void deleteAccount();

    /// Reads the state again.
    void refresh();

Q_SIGNALS:
    void changed();
    /// A sign-in begun here succeeded.
    void signInSucceeded();

private:
    void ask(void (Commands::*command)(), bool throughBrowser);

    Commands& m_commands;
    AccountState m_state;
    bool m_throughBrowser = false; ///< the operation under way, if any, is a sign-in begun here
};

} // namespace quillo
