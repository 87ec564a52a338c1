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
            throw LoginItemError(QStringLiteral("the disk is read-only; remount it"));
        changes += status != current;
        current = status;
    }
};

struct Case {
    const char* name;
    std::optional<bool> chosen;
    Status before;
    bool setting; ///< what the setting should say afterwards
    Status after;
    std::string log; ///< an expected log line; empty: no line
};

class Reconcile : public testing::TestWithParam<Case> {};

TEST_P(Reconcile, MatchesTheChoiceUnlessANewerOneWasMadeInTheSession) {
    const auto& given = GetParam();
    const LogLines log;
    ScriptedLoginItem item;
    item.current = given.before;
    EXPECT_EQ(LaunchAtLogin(item).reconcile(given.chosen), given.setting);
    EXPECT_EQ(item.current, given.after);
    if (given.log.empty())
        EXPECT_EQ(log.count("Launch at Login"), 0);
    else
        EXPECT_EQ(log.count(given.log), 1) << log.text();
}

INSTANTIATE_TEST_SUITE_P(
    , Reconcile,
    testing::Values(Case{"NothingChosen", {}, Status::notRegistered, false, Status::notRegistered, ""},
                    Case{"ArrangedByTheAdministrator", {}, Status::enabled, true, Status::enabled, ""},
                    Case{"Wanted", true, Status::notRegistered, true, Status::enabled,
                         "[AppDelegate] ✅ Launch at Login registered, new status=enabled"},
                    Case{"WantedAndThere", true, Status::enabled, true, Status::enabled,
                         "[AppDelegate] Launch at Login: desired=true"},
                    Case{"SwitchedOffInTheSession", true, Status::requiresApproval, false, Status::requiresApproval,
                         "switched off in the session's settings"},
                    Case{"Unwanted", false, Status::enabled, false, Status::notRegistered,
                         "[AppDelegate] ✅ Launch at Login unregistered, new status=notRegistered"},
                    Case{"UnwantedAndSwitchedOff", false, Status::requiresApproval, false, Status::requiresApproval,
                         "[AppDelegate] Launch at Login: desired=false"}),
    [](const auto& info) { return info.param.name; });

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
