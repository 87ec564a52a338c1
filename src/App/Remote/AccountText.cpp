#include "App/Remote/AccountText.h"

#include "Localization/LocalizationManager.h"

namespace quillo {

QString accountText(const AccountState& account) {
    QString text;
    switch (account.kind) {
    case AccountState::Kind::none:
        text = QStringLiteral("not signed in");
        break;
    case AccountState::Kind::anonymous:
        text = QStringLiteral("not signed in: dictating without an account");
        break;
    case AccountState::Kind::expired:
        text = QStringLiteral("signed out by the server: sign in again with quillo sign-in");
        break;
    case AccountState::Kind::signedIn:
        text = account.name.isEmpty() ? QStringLiteral("signed in as %1").arg(account.email)
                                      : QStringLiteral("signed in as %1 <%2>").arg(account.name, account.email);
        break;
    }
    if (account.isBusy)
        text += QStringLiteral("\nwaiting for the browser");
    if (!account.message.isEmpty())
        text += QStringLiteral("\nlast attempt: %1").arg(LocalizationManager::shared().t(account.message));
    return text;
}

} // namespace quillo
