#include "App/Dictation/KeyRefusal.h"
#include "Support/LogLines.h"

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

using namespace std::chrono_literals;

TEST(KeyRefusal, AUserWhoTriesAgainIsInformedNowAndThen) {
    struct Press {
        std::chrono::seconds after; ///< since the one before
        bool isAway;
        int notices; ///< so far
    };
    const Press presses[] = {
        {0s, true, 0},   // perhaps a key of the locked screen
        {60s, true, 0},  // another lock
        {2s, true, 1},   // the user tries again
        {1s, true, 1},   // and again
        {1s, false, 1},  // it works
        {300s, true, 1}, // away again
        {2s, true, 1},   // too soon for another notice
        {600s, true, 1}, {2s, true, 2},
    };
    const LogLines log;
    ManualClock clock{EventExecutor::main()};
    bool isAway = false;
    int notices = 0;
    KeyRefusal refusal(
        clock, [&] { return isAway; }, [&] { ++notices; });
    int number = 0;
    for (const auto& press : presses) {
        clock.advance(press.after);
        isAway = press.isAway;
        EXPECT_EQ(refusal.refuses(), press.isAway) << ++number;
        EXPECT_EQ(notices, press.notices) << number;
    }
    EXPECT_EQ(log.count("The hotkey is ignored"), 8);
}

} // namespace
} // namespace quillo::test
