#include "Services/Hotkeys/HotkeyChoice.h"
#include "Services/Hotkeys/HotkeyFixture.h"
#include "Services/Settings/KeyCodeLabels.h"

#include <QMap>

namespace quillo::test {

void HotkeyFixture::play(const QString& script) {
    static const QMap<QString, uint16_t> names{{u"hold"_qs, keycode::rightCommand},
                                               {u"leftSuper"_qs, keycode::leftCommand},
                                               {u"alt"_qs, keycode::leftOption},
                                               {u"shift"_qs, keycode::leftShift},
                                               {u"space"_qs, keycode::space},
                                               {u"escape"_qs, keycode::escape},
                                               {u"l"_qs, uint16_t(37)},
                                               {u"f9"_qs, uint16_t(101)}};
    for (const auto& step : script.split(u' ', Qt::SkipEmptyParts)) {
        bool isNumber = false;
        const int milliseconds = step.toInt(&isNumber);
        const QString name = step.mid(1);
        if (isNumber && step.at(0).isDigit())
            pass(milliseconds);
        else if (step.startsWith(u'<'))
            keys.age = std::chrono::milliseconds(name.toInt());
        else if (step == QLatin1String("changed"))
            keys.announce(KeyEventSourceState::keyboardChanged);
        else if (step == QLatin1String("ended"))
            service.setRecordingActive(false);
        else if (step == QLatin1String("locked"))
            service.forgetPressedKeys();
        else if (step == QLatin1String("begun"))
            service.setRecordingActive(true);
        else if (step.startsWith(u'+'))
            keys.press(names.value(name));
        else if (step.startsWith(u'~'))
            keys.press(names.value(name), true);
        else if (step.startsWith(u'!'))
            keys.loseRelease(names.value(name));
        else
            keys.release(names.value(name));
        executor.drain();
    }
}

namespace {

struct Case {
    const char* name;
    const char* script;
    const char* expected;
    std::vector<std::pair<const char*, QVariant>> settings = {};
};

void PrintTo(const Case& scenario, std::ostream* stream) { *stream << scenario.script; }

class HotkeyScenario : public testing::TestWithParam<Case> {};

TEST_P(HotkeyScenario, CallsBack) {
    HotkeyFixture fixture;
    for (const auto& [key, value] : GetParam().settings)
        fixture.set(key, value);
    fixture.service.start();
    fixture.play(QString::fromLatin1(GetParam().script));
    EXPECT_EQ(fixture.called().toStdString(), GetParam().expected);
}

const std::vector<std::pair<const char*, QVariant>> f9WithShift{{"hotkeyKeyCode", 101}, {"hotkeyModifiers", 0x20000}};
const std::vector<std::pair<const char*, QVariant>> f9{{"hotkeyKeyCode", 101}};
const std::vector<std::pair<const char*, QVariant>> escapeCancels{{"cancelRecordingOnEscape", true}};

INSTANTIATE_TEST_SUITE_P(
    , HotkeyScenario,
    testing::Values(
        Case{"HoldAndRelease", "+hold 1000 -hold 149", "down"},
        Case{"HoldStopsAfterTheDelay", "+hold 1000 -hold 150", "down up"},
        Case{"TapWithoutSecondStops", "+hold 100 -hold 300", "down up"},
        Case{"DoubleTapIsOneRecording", "+hold 100 -hold 100 +hold 100 -hold 5000", "down handsOff"},
        Case{"DoubleTapAtTheLongestGapIsOneRecording", "+hold 100 -hold 299 +hold 100 -hold 5000", "down handsOff"},
        Case{"ThirdPressStopsAndItsReleaseDoesNothing",
             "+hold 100 -hold 100 +hold 100 -hold 5000 +hold 1000 -hold 1000", "down handsOff handsOn up"},
        Case{"PressSoonAfterALongHoldStartsHandsOff", "+hold 1000 -hold 200 +hold 100 -hold 1000",
             "down up down handsOff"},
        Case{"SlowSecondPressIsAnotherHold", "+hold 1000 -hold 400 +hold 1000 -hold 1000", "down up down up"},
        Case{"ShortIntervalTurnsTheSecondTapIntoOneHold",
             "+hold 100 -hold 60 +hold 1000 -hold 1000",
             "down up",
             {{"doubleTapInterval", 0.05}}},
        Case{"LeftSuperIsNotRightSuper", "+leftSuper 1000 -leftSuper 1000", ""},
        Case{"LeftSuperDoesNotReleaseRightSuper", "+hold 500 +leftSuper 500 -leftSuper 500", "down"},
        Case{"RepeatsAreNoPresses", "+hold 400 ~l ~l -hold 1000", "down up"},
        Case{"ChordCancels", "+hold 50 +l 50 -l 50 -hold 1000", "down cancel"},
        Case{"KeyHeardOfLateIsNoChord", "500 <500 +hold <100 +l -l <0 500 -hold 1000", "down up"},
        Case{"SecondTapHeardOfLateIsADoubleTap", "+hold 100 -hold 400 <150 +hold <0 100 -hold 1000",
             "down up down handsOff"},
        Case{"TapsFarApartHeardOfAtOnceAreNoDoubleTap", "+hold 1000 <500 -hold <0 +hold 1000 -hold 1000", "down up"},
        Case{"HoldHeardOfLateIsNoTap", "900 <900 +hold <100 -hold 50", "down up"},
        Case{"LateKeyIsNoChord", "+hold 1000 +l 50 -l 50 -hold 1000", "down up"},
        Case{"ToggleStartsAndStops", "+alt +space -space -alt 2000 +alt +space -space -alt 2000",
             "down handsOff handsOn up"},
        Case{"ToggleWithinTheCooldownIsIgnored", "+alt +space -space 300 +space -space -alt 2000", "down handsOff"},
        Case{"ToggleRepeatIsIgnored", "+alt +space 600 ~space ~space -space -alt", "down handsOff"},
        Case{"ToggleNeedsExactlyItsModifiers", "+alt +shift +space -space -shift -alt +space -space", ""},
        Case{"ToggleUpgradesTheHold", "+hold 500 +alt +space -space -alt 500 -hold 5000", "down handsOff"},
        Case{"ToggleUpgradesDuringTheDelayedStop", "+hold 500 -hold 100 +alt +space -space -alt 5000", "down handsOff"},
        Case{"ToggleStopWhileHeldEndsItOnce", "+hold 500 +alt +space -space 600 +space -space -alt 500 -hold 5000",
             "down handsOff handsOn up"},
        Case{"HoldModifierIsIgnoredInAToggleRecording", "+alt +space -space -alt 500 +hold 500 -hold 500",
             "down handsOff"},
        Case{"OrdinaryKeyHolds", "+f9 500 ~f9 ~f9 500 -f9 1000", "down up", f9},
        Case{"OrdinaryKeyEndsAToggleRecordingForGood", "+alt +space -space -alt 900 +f9 90 -f9 900 +alt +space -space",
             "down handsOff handsOn up down handsOff", f9},
        Case{"OrdinaryKeyNeedsExactlyItsModifiers", "+f9 500 -f9 1000", "", f9WithShift},
        Case{"ModifierReleasedFirstEndsTheHold", "+shift +f9 500 -shift 1000 -f9 1000", "down up", f9WithShift},
        Case{"EscapeCancelsWhenSet", "+hold 500 +escape -escape 500 -hold 1000 +escape -escape", "down cancel",
             escapeCancels},
        Case{"EscapeCancelsHandsOff", "+alt +space -space -alt 900 +escape 900 +alt +space",
             "down handsOff handsOn cancel down handsOff", escapeCancels},
        Case{"EscapeIsNothingByDefault", "+hold 500 +escape -escape 500 -hold 1000", "down up"},
        Case{"UnpluggedKeyboardReleases", "+hold 1000 !hold changed 1000", "down up"},
        Case{"OtherKeyboardChangesNothing", "+hold 1000 changed 1000", "down"},
        Case{"LostReleaseIsFoundOut", "+hold 1000 !hold 1000", "down up"},
        Case{"EndedByItselfStartsAfresh", "+alt +space -space -alt 900 ended +alt +space -space -alt",
             "down handsOff down handsOff"},
        Case{"EndedByItselfWhileHeldLeavesNothingToRelease", "+hold 500 ended 500 -hold 1000 +hold 500 -hold 500",
             "down down up"},
        Case{"StartedElsewhereIsStoppedByToggle", "begun +alt +space -space -alt 900", "handsOn up"},
        Case{"LeftAloneAfterAToggleRecordingTheHeldKeyBeginsNothing",
             "+alt +space -space -alt 900 +hold 100 ended +shift -shift 900 -hold 900", "down handsOff"},
        Case{"ALockedSessionForgetsThePress", "+hold 500 locked +shift -shift 900 -hold 900 +hold 500 -hold 900",
             "down down up"},
        Case{"LateStartWhileHeldIsStoppedByItsRelease", "+hold 500 ended begun 500 -hold 500", "down up"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(HotkeyService, SaysWhenTheKeyWasPressedHoweverLateItIsHeardOf) {
    for (const char* press : {"900 <400 +hold", "900 +alt <400 +space"}) {
        HotkeyFixture fixture;
        fixture.service.start();
        fixture.play(QString::fromLatin1(press));
        EXPECT_EQ(fixture.lateBy, std::chrono::milliseconds(400)) << press;
    }
}

TEST(HotkeyService, HidesTheLoneTapOfAKeyThatOpensMenus) {
    const std::pair<int, int> cases[] = {
        {keycode::rightCommand, 1}, {keycode::leftOption, 1}, {keycode::rightControl, 0}, {101, 0}};
    for (const auto& [code, taps] : cases) {
        HotkeyFixture fixture;
        fixture.set("hotkeyKeyCode", code);
        fixture.service.start();
        fixture.keys.press(static_cast<uint16_t>(code));
        EXPECT_EQ(fixture.keys.hiddenTaps, taps) << code;
        fixture.keys.release(static_cast<uint16_t>(code));
        EXPECT_EQ(fixture.keys.hiddenTaps, taps) << code;
    }
}

TEST(HotkeyService, LeavesACombinationOfAnotherProgramAloneUntilItIsFree) {
    HotkeyFixture fixture;
    fixture.keys.unavailable = {{keycode::space, keyflag::option},
                                {keycode::space, keyflag::control | keyflag::option}};
    int changes = 0;
    fixture.service.onConflictsChanged = [&] { ++changes; };
    fixture.service.start();
    const QString press = u"+alt +space -space -alt 900"_qs;
    fixture.play(press);
    EXPECT_EQ(fixture.called().toStdString(), "");
    const KeyCombination offered{keycode::space, keyflag::control | keyflag::command};
    EXPECT_EQ(fixture.service.conflicts(),
              (std::vector<HotkeyConflict>{{Hotkey::toggle, {keycode::space, keyflag::option}, offered}}));
    fixture.keys.unavailable.clear();
    fixture.pass(20'000);
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(fixture.service.conflicts().empty());
    fixture.play(press);
    EXPECT_EQ(fixture.called().toStdString(), "down handsOff");
}

TEST(HotkeyService, CapturesTheKeyThatIsPressedAndActsOnNone) {
    struct {
        const char* script;
        KeyCombination expected;
    } const cases[] = {{"+f9", {101, 0}},
                       {"+hold 100 -hold", {keycode::rightCommand, 0}},
                       {"+alt +space", {keycode::space, keyflag::option}},
                       {"+alt +shift -shift -alt +f9", {101, 0}}};
    for (const auto& [script, expected] : cases) {
        HotkeyFixture fixture;
        fixture.service.start();
        std::vector<KeyCombination> captured;
        fixture.service.captureKey([&](const KeyCombination& key) { captured.push_back(key); });
        fixture.play(QString::fromLatin1(script));
        EXPECT_EQ(captured, std::vector{expected}) << script;
        EXPECT_EQ(fixture.called().toStdString(), "") << script;
        fixture.play(u"-f9 -space -shift -alt 900 +hold"_qs);
        EXPECT_EQ(fixture.called().toStdString(), "down") << script;
    }
}

TEST(HotkeyChoice, RefusesWhatWouldTakeAKeyFromTheUser) {
    using hotkeyChoice::Problem;
    struct {
        Hotkey hotkey;
        KeyCombination combination;
        Problem problem;
    } const cases[] = {{Hotkey::hold, {keycode::rightControl, 0}, Problem::none},
                       {Hotkey::hold, {101, 0}, Problem::none},
                       {Hotkey::hold, {keycode::space, 0}, Problem::neededForTyping},
                       {Hotkey::toggle, {0, keyflag::shift}, Problem::neededForTyping},
                       {Hotkey::toggle, {0, keyflag::control}, Problem::none},
                       {Hotkey::toggle, {keycode::rightControl, 0}, Problem::loneModifier},
                       {Hotkey::hold, {keycode::space, keyflag::option}, Problem::otherHotkey}};
    HotkeyFixture fixture;
    for (const auto& [hotkey, combination, problem] : cases)
        EXPECT_EQ(hotkeyChoice::problemOf(hotkey, combination, HotkeyConfig()), problem) << combination.keyCode;
    hotkeyChoice::store(Hotkey::toggle, {0, keyflag::control}, fixture.settings);
    const auto stored = HotkeyConfig::fromSettings(fixture.settings);
    EXPECT_EQ(stored.toggleKeyCode, 0);
    EXPECT_EQ(stored.toggleModifiers, keyflag::control);
    for (const auto hotkey : {Hotkey::hold, Hotkey::toggle})
        for (const auto& offered : hotkeyChoice::alternatives(hotkey))
            EXPECT_EQ(hotkeyChoice::problemOf(hotkey, offered, HotkeyConfig()), Problem::none) << offered.keyCode;
}

TEST(HotkeyService, StaysStoppedWithoutPermissionAndStartsWhenItIsGranted) {
    HotkeyFixture fixture;
    fixture.keys.trusted = false;
    fixture.keys.canStart = false;
    fixture.service.start();
    EXPECT_FALSE(fixture.service.isRunning());
    fixture.keys.canStart = true;
    fixture.service.start();
    EXPECT_TRUE(fixture.service.isRunning());
}

TEST(HotkeyService, StoppingEndsWhatRunsAndForgetsTheKeys) {
    for (const auto* script : {"+hold 500", "+hold 500 -hold 100", "+alt +space 500"}) {
        HotkeyFixture fixture;
        fixture.service.start();
        fixture.play(QString::fromLatin1(script));
        fixture.service.stop();
        fixture.service.start();
        fixture.play(u"-hold 1000"_qs);
        EXPECT_EQ(fixture.begun, 1) << script;
        EXPECT_EQ(fixture.ended, 1) << script;
    }
}

TEST(HotkeyService, RestartsOnceWhenAHotkeyChanges) {
    HotkeyFixture fixture;
    fixture.service.start();
    fixture.set("toggleHotkeyKeyCode", 101);
    fixture.set("toggleHotkeyModifiers", 0x40000);
    fixture.executor.drain();
    EXPECT_EQ(fixture.keys.starts, 2);
    EXPECT_EQ(fixture.keys.consumed.front(), (KeyCombination{101, keyflag::control}));
    fixture.set("playSound", false);
    fixture.executor.drain();
    EXPECT_EQ(fixture.keys.starts, 2);
}

TEST(HotkeyService, TakesEscapeFromOthersOnlyWhileARecordingRuns) {
    HotkeyFixture fixture;
    fixture.set("cancelRecordingOnEscape", true);
    fixture.service.start();
    const auto takesEscape = [&] {
        const auto& consumed = fixture.keys.consumed;
        return std::find(consumed.begin(), consumed.end(), KeyCombination{keycode::escape, 0}) != consumed.end();
    };
    EXPECT_FALSE(takesEscape());
    fixture.play(u"+hold 500"_qs);
    EXPECT_TRUE(takesEscape());
    fixture.play(u"-hold 500"_qs);
    EXPECT_FALSE(takesEscape());
}

TEST(HotkeyService, ComesBackAfterTheSourceWasLost) {
    HotkeyFixture fixture;
    fixture.service.start();
    fixture.play(u"+hold 500"_qs);
    fixture.keys.canStart = false;
    fixture.keys.announce(KeyEventSourceState::lost);
    fixture.executor.drain();
    EXPECT_FALSE(fixture.service.isRunning());
    EXPECT_EQ(fixture.called().toStdString(), "down up");
    fixture.pass(10'000);
    fixture.keys.canStart = true;
    fixture.pass(30'000);
    EXPECT_TRUE(fixture.service.isRunning());
    EXPECT_EQ(fixture.keys.starts, 2);
}

TEST(KeyCodeLabels, NameKeysAsALinuxKeyboardDoes) {
    const std::pair<uint16_t, const char*> cases[] = {
        {0, "A"},          {9, "V"},         {18, "1"},         {36, "Return"}, {48, "Tab"},
        {49, "Space"},     {53, "Escape"},   {96, "F5"},        {122, "F1"},    {54, "Right Super"},
        {61, "Right Alt"}, {200, "Key 200"}, {51, "Backspace"}, {117, "Delete"}};
    for (const auto& [code, label] : cases)
        EXPECT_EQ(keyCodeToString(code).toStdString(), label);
    EXPECT_EQ(keyCombinationToString(2, keyflag::mask).toStdString(), "Ctrl+Alt+Shift+Super+D");
}

} // namespace
} // namespace quillo::test
