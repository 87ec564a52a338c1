#pragma once

#include "UI/Account/AccountModel.h"
#include "UI/Window/DialogWindow.h"

namespace quillo {

/// Who is signed in, and signing in, out and away for good. Escape leaves.
class AccountWindow final : public DialogWindow {
    Q_OBJECT
public:
    /// `account` must outlive the window.
    AccountWindow(QmlEngineHost& host, AccountModel& account);
    ~AccountWindow() override;
};

} // namespace quillo
