#include "Services/Desktop/LaunchAtLogin.h"
#include "Support/LogLines.h"

#include <gmock/gmock.h>

using namespace quillo;
using namespace quillo::test;

namespace {

using Status = LoginItemStatus;

/// A login item that obeys or refuses.
class ScriptedLoginItem final : public LoginItem {
public:
    Status current = Status::notRegistered;
    bool refuses = false;
    int changes = 0;

    Status status() override { return current; }
    void registerItem() override { set(Status::enabled); }
    void unregisterItem() override { set(Status::notRegistered); }

private:
    void set(Status status) {
        if (refuses)
            throw LoginItemError(u"the disk is read-only; remount it"_qs);
        changes += status != current;
        current = status;
    }
};

TEST(LaunchAtLogin, TheStartMatchesTheChoiceUnlessANewerOneWasMadeInTheSession) {
    using enum LoginItemStatus;
    struct Case {
        std::optional<bool> chosen;
        Status before;
        bool setting; ///< what the setting should say afterwards
        Status after;
        std::string log; ///< an expected log line; empty: no line
    };
    for (const auto& given : std::vector<Case>{
             {{}, notRegistered, false, notRegistered, ""},
             {{}, enabled, true, enabled, ""}, // arranged by the administrator
             {true, notRegistered, true, enabled, "✅ Launch at Login registered, new status=enabled"},
             {true, enabled, true, enabled, "Launch at Login: desired=true"},
             {true, requiresApproval, false, requiresApproval, "switched off in the session's settings"},
             {false, enabled, false, notRegistered, "✅ Launch at Login unregistered, new status=notRegistered"},
             {false, requiresApproval, false, requiresApproval, "Launch at Login: desired=false"},
         }) {
        const LogLines log;
        ScriptedLoginItem item;
        item.current = given.before;
        EXPECT_EQ(LaunchAtLogin(item).reconcile(given.chosen), given.setting) << given.log;
        EXPECT_EQ(item.current, given.after) << given.log;
        if (given.log.empty())
            EXPECT_EQ(log.count("Launch at Login"), 0);
        else
            EXPECT_EQ(log.count(given.log), 1) << log.text();
    }
}

TEST(LaunchAtLogin, AChoiceOverrulesTheSessionsSettings) {
    ScriptedLoginItem item;
    item.current = Status::requiresApproval;
    EXPECT_TRUE(LaunchAtLogin(item).change(true));
    EXPECT_EQ(item.current, Status::enabled);
    EXPECT_FALSE(LaunchAtLogin(item).change(false));
    EXPECT_EQ(item.changes, 2);
}

TEST(LaunchAtLogin, AFailureIsToldAndClaimsNothing) {
    const LogLines log;
    ScriptedLoginItem item;
    item.refuses = true;
    EXPECT_FALSE(LaunchAtLogin(item).change(true));
    EXPECT_EQ(log.count("[AppDelegate] ⚠️ Failed to update Launch at Login: the disk is read-only; remount it"), 1);
    EXPECT_EQ(log.count("new status="), 0);
}

} // namespace
