#include "Services/Hotkeys/HotkeyFixture.h"

#include <cstdlib>
#include <random>

namespace quillo::test {
namespace {

// Whatever happens to the keyboard, a recording that was begun is ended, once, and the keys still work afterwards.
class HotkeyStorm : public testing::TestWithParam<int> {
protected:
    void configure(HotkeyFixture& fixture) const {
        fixture.set("cancelRecordingOnEscape", true);
        if (GetParam() == 1)
            fixture.set("hotkeyKeyCode", 101);
        if (GetParam() == 2) {
            fixture.set("hotkeyKeyCode", 2);
            fixture.set("hotkeyModifiers", static_cast<int>(keyflag::control | keyflag::shift));
        }
    }
};

TEST_P(HotkeyStorm, EndsWhatItBegins) {
    const char* given = std::getenv("QUILLO_STORM_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    SCOPED_TRACE("QUILLO_STORM_SEED=" + std::to_string(seed));
    RecordProperty("seed", std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };

    HotkeyFixture fixture;
    configure(fixture);
    fixture.service.start();
    using namespace keycode;
    const std::vector<uint16_t> keys = {rightCommand, leftCommand, leftOption, leftControl, leftShift, space,
                                        escape,       101,         2};
    const std::vector<std::vector<uint16_t>> holdKeys{{rightCommand}, {101}, {leftControl, leftShift, 2}};
    const auto& hold = holdKeys.at(static_cast<size_t>(GetParam()));
    const int pauses[] = {0, 1, 20, 100, 149, 151, 299, 301, 501, 3000};
    for (int step = 0; step < 10'000; ++step) {
        // Keys that do not belong to the hold hotkey are pressed seldom, or its modifiers would hardly ever match.
        const bool isHold = below(2) == 0;
        const auto& among = isHold ? hold : keys;
        const uint16_t key = among.at(static_cast<size_t>(below(static_cast<int>(among.size()))));
        const bool isDown = fixture.keys.down().contains(key);
        if (!isDown && !isHold && below(3) != 0)
            continue;
        switch (below(20)) {
        case 0:
            if (isDown)
                fixture.keys.press(key, true);
            break;
        case 1:
            fixture.keys.loseRelease(key);
            break;
        case 2:
            fixture.keys.announce(KeyEventSourceState::keyboardChanged);
            break;
        case 3:
            if (below(20) == 0)
                fixture.keys.announce(KeyEventSourceState::lost);
            break;
        case 4:
            if (below(20) == 0) {
                fixture.service.stop();
                fixture.service.start();
            }
            break;
        default:
            if (isDown)
                fixture.keys.release(key);
            else
                fixture.keys.press(key);
        }
        // Not always: several events may arrive before anything else runs.
        if (below(3) != 0)
            fixture.pass(pauses[below(10)]);
        ASSERT_LE(fixture.ended, fixture.begun) << "step " << step;
        ASSERT_LE(fixture.begun, fixture.ended + 1) << "step " << step;
    }
    ASSERT_GT(fixture.begun, 20);

    fixture.executor.drain();
    const auto stillDown = fixture.keys.down();
    for (const auto key : stillDown)
        fixture.keys.release(key);
    fixture.pass(40'000);
    ASSERT_TRUE(fixture.service.isRunning());
    // A hands-off recording may continue; the toggle hotkey ends it like any other.
    const auto toggle = [&] {
        for (const bool down : {true, false})
            for (const uint16_t key : {keycode::leftOption, keycode::space})
                down ? fixture.keys.press(key) : fixture.keys.release(key);
        fixture.pass(1000);
    };
    for (int attempt = 0; fixture.begun != fixture.ended && attempt < 2; ++attempt)
        toggle();
    EXPECT_EQ(fixture.begun, fixture.ended);

    const int before = fixture.begun;
    toggle();
    EXPECT_EQ(fixture.begun, before + 1);
    toggle();
    EXPECT_EQ(fixture.ended, before + 1);
}

std::string holdKeyName(const testing::TestParamInfo<int>& info) {
    static const char* const names[] = {"RightSuper", "F9", "ControlShiftD"};
    return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(HoldKeys, HotkeyStorm, testing::Values(0, 1, 2), holdKeyName);

} // namespace
} // namespace quillo::test
