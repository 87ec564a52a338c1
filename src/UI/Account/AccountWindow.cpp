#include "UI/Account/AccountWindow.h"

#include "UI/Foundation/Texts.h"

namespace quillo {

AccountWindow::AccountWindow(QmlEngineHost& host, AccountModel& account)
    : DialogWindow(Texts::lookUp(QStringLiteral("account.title"))) {
    fill(host, QStringLiteral("Account/Account.qml"),
         {{QStringLiteral("account"), &account}, {QStringLiteral("dialog"), this}});
}

AccountWindow::~AccountWindow() = default;

} // namespace quillo
