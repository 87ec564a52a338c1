#pragma once

#include "UI/Account/AccountModel.h"
#include "UI/Window/DialogWindow.h"

namespace quillo {

/// Shows the signed-in user and offers to sign in, sign out and delete the account. Escape closes it.
class AccountWindow final : public DialogWindow {
    Q_OBJECT
public:
    /// `account` must outlive the window.
    AccountWindow(QmlEngineHost& host, AccountModel& account);
    ~AccountWindow() override;
};

} // namespace quillo
