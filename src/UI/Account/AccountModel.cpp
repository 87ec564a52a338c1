#include "UI/Account/AccountModel.h"

#include "UI/Foundation/Texts.h"

namespace quillo {

AccountModel::AccountModel(Commands& commands) : m_commands(commands), m_state(commands.account()) {
    Texts::follow(this, [this] { Q_EMIT changed(); });
}

QString AccountModel::phase() const {
    if (m_state.isBusy)
        return m_throughBrowser ? QStringLiteral("waiting") : QStringLiteral("busy");
    switch (m_state.kind) {
    case AccountState::Kind::none:
        break;
    case AccountState::Kind::anonymous:
        return QStringLiteral("anonymous");
    case AccountState::Kind::signedIn:
        return QStringLiteral("signedIn");
    case AccountState::Kind::expired:
        return QStringLiteral("expired");
    }
    return QStringLiteral("none");
}

QString AccountModel::message() const { return Texts::of(m_state.message); }

QString AccountModel::title() const {
    if (isSignedIn()) {
        if (!m_state.name.trimmed().isEmpty())
            return m_state.name.simplified();
        return m_state.email.isEmpty() ? Texts::lookUp(QStringLiteral("account.signedIn")) : m_state.email;
    }
    if (m_state.kind == AccountState::Kind::expired)
        return Texts::lookUp(QStringLiteral("account.expired"));
    return Texts::lookUp(m_state.kind == AccountState::Kind::anonymous ? QStringLiteral("account.anonymous")
                                                                       : QStringLiteral("account.none"));
}

QString AccountModel::detail() const { return isSignedIn() && title() != m_state.email ? m_state.email : QString(); }

QString AccountModel::initial() const {
    if (!isSignedIn())
        return {};
    const auto name = title();
    // A letter may consist of two UTF-16 units.
    return name.left(name.front().isHighSurrogate() ? 2 : 1).toUpper();
}

void AccountModel::signIn() { ask(&Commands::signIn, true); }
void AccountModel::registerAccount() { ask(&Commands::registerAccount, true); }
void AccountModel::signOut() { ask(&Commands::signOut, false); }
void AccountModel::deleteAccount() { ask(&Commands::deleteAccount, false); }

void AccountModel::cancel() {
    m_commands.cancelSignIn();
    refresh();
}

void AccountModel::ask(void (Commands::*command)(), bool throughBrowser) {
    if (m_state.isBusy)
        return;
    m_throughBrowser = throughBrowser;
    (m_commands.*command)();
    refresh();
}

void AccountModel::refresh() {
    const auto before = std::exchange(m_state, m_commands.account());
    if (before == m_state)
        return;
    const bool succeeded = m_throughBrowser && isSignedIn() && !m_state.isBusy;
    if (!m_state.isBusy)
        m_throughBrowser = false;
    Q_EMIT changed();
    if (succeeded)
        Q_EMIT signInSucceeded();
}

} // namespace quillo
