#include "UI/Account/AccountModel.h"

#include "UI/Texts.h"

namespace quillo {

AccountModel::AccountModel(const UserInterfaceHooks& hooks) : m_hooks(hooks) {
    if (m_hooks.account)
        m_state = m_hooks.account();
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
    }
    return QStringLiteral("none");
}

QString AccountModel::title() const {
    if (isSignedIn()) {
        if (!m_state.name.trimmed().isEmpty())
            return m_state.name.simplified();
        return m_state.email.isEmpty() ? Texts::lookUp(QStringLiteral("account.signedIn")) : m_state.email;
    }
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

void AccountModel::signIn() { ask(m_hooks.signIn, true); }
void AccountModel::registerAccount() { ask(m_hooks.registerAccount, true); }
void AccountModel::signOut() { ask(m_hooks.signOut, false); }
void AccountModel::deleteAccount() { ask(m_hooks.deleteAccount, false); }

void AccountModel::cancel() {
    if (m_hooks.cancelSignIn)
        m_hooks.cancelSignIn();
    refresh();
}

void AccountModel::ask(const std::function<void()>& hook, bool throughBrowser) {
    if (!hook || m_state.isBusy)
        return;
    m_throughBrowser = throughBrowser;
    hook();
    refresh();
}

void AccountModel::refresh() {
    if (!m_hooks.account)
        return;
    const auto before = std::exchange(m_state, m_hooks.account());
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
