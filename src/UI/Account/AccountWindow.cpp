#include "UI/Account/AccountWindow.h"

namespace quillo {

AccountWindow::AccountWindow(QmlEngineHost& host, AccountModel& account)
    : DialogWindow(QStringLiteral("account.title")) {
    fill(host, QStringLiteral("Account/Account.qml"),
         {{QStringLiteral("account"), &account}, {QStringLiteral("dialog"), this}});
}

AccountWindow::~AccountWindow() = default;

} // namespace quillo
