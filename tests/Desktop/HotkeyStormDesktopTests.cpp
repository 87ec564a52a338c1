// The hotkeys in a real session, under everything that other hands and programs do to a keyboard.

#include "KeyStorm.h"
#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <random>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

constexpr uint8_t holdKey = DesktopSession::rightSuper;
constexpr uint8_t altKey = 64;
constexpr uint8_t spaceKey = 65;
constexpr uint8_t escapeKey = 9;
constexpr std::array<uint8_t, 6> otherKeys{38, 39, 40, 50, 37, 133}; // a, s, d, Shift, Control, Left Super

class HotkeyStorm : public OnOneDesktop {
protected:
    QString statusWord() { return session.status("status"); }
    QString display() { return session.environment().value(u"DISPLAY"_qs); }

    /// Whatever happened: nothing runs, no key is stuck, and the next dictation arrives.
    void expectReady(const TargetWindow& field, const QString& text) {
        EXPECT_TRUE(waitUntil([&] { return storm.keysDown().empty(); }, 5s)) << "a key is stuck";
        EXPECT_TRUE(waitUntil(
            [&] { return desktop.logged(u"🎬 Recording START"_qs) == desktop.logged(u"🏁 Recording END"_qs); }, 30s))
            << "a recording did not end";
        desktop.rest();
        activate(session, field);
        const auto before = field.content();
        const auto run = desktop.dictate(text);
        EXPECT_EQ(run.value(u"reason"_qs).toString(), u"completed"_qs);
        EXPECT_TRUE(waitUntil([&] { return field.content() == before + text.toUtf8(); }, 5s))
            << field.content().toStdString();
        EXPECT_TRUE(session.waitForStatus(u"idle"_qs));
        EXPECT_TRUE(storm.keysDown().empty());
        EXPECT_EQ(desktop.logged(u"🎬 Recording START"_qs), desktop.logged(u"🏁 Recording END"_qs));
    }

    KeyStorm storm{display()};
};

TEST_F(HotkeyStorm, HundredsOfRandomEventsLeaveNothingBehind) {
    const auto first = openQtField(session);
    const auto second = openGtkField(session);
    desktop.say({});
    desktop.set("cancelRecordingOnEscape", u"true"_qs);
    constexpr unsigned seed = 20260;
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return std::uniform_int_distribution(0, limit - 1)(random); };
    const auto chord = [&](std::vector<uint8_t> keys) {
        for (const auto key : keys)
            storm.press(key);
        storm.roundTrips(below(50));
        for (auto key = keys.rbegin(); key != keys.rend(); ++key)
            storm.release(*key);
    };
    for (int event = 0; event < 500; ++event) {
        const int kind = below(12);
        if (kind < 4)
            storm.press(holdKey); // again and again while it is down, as auto-repeat does
        else if (kind < 7)
            storm.release(holdKey);
        else if (kind == 7)
            chord({altKey, spaceKey});
        else if (kind == 8)
            chord({escapeKey});
        else if (kind == 9)
            storm.activateWindow(below(2) == 0 ? first.id : second.id);
        else
            chord({otherKeys[static_cast<size_t>(below(otherKeys.size()))]});
        // Mostly fast; sometimes slow enough for a recording to begin.
        storm.roundTrips(below(20) == 0 ? 20000 : below(400));
    }
    for (const auto key : {holdKey, altKey, spaceKey, escapeKey})
        storm.release(key);
    // A storm may well end hands-off, by either hotkey; Escape ends both.
    const auto idle = [&] {
        return !QStringList{u"recording"_qs, u"connecting"_qs, u"processing"_qs}.contains(statusWord());
    };
    if (!waitUntil(idle, 3s))
        chord({escapeKey});
    EXPECT_TRUE(waitUntil(idle, 20s)) << statusWord().toStdString();
    EXPECT_GT(desktop.logged(u"🎬 Recording START"_qs), 5) << "the storm reached nobody";
    expectReady(first, u"After the storm."_qs);
    session.end(*first.process);
    session.end(*second.process);
}

TEST_F(HotkeyStorm, AScreenLockInTheMiddleEndsWithTheRelease) {
    const auto field = openQtField(session);
    activate(session, field);
    desktop.say(u"Said to a locked screen."_qs);
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    desktop.speak();
    ASSERT_TRUE(storm.grabKeyboard());
    desktop.release();
    const auto run = desktop.awaitRun(before);
    // The keys would go to the locker: nothing may be sent.
    EXPECT_FALSE(run.contains(u"delivery"_qs));
    EXPECT_TRUE(waitUntil([&] { return session.status("message").startsWith(u"The text was not inserted: "_qs); }, 5s))
        << qPrintable(session.status("message"));
    EXPECT_EQ(field.content(), QByteArray());
    storm.ungrabKeyboard();
    expectReady(field, u"After the lock."_qs);
    session.end(*field.process);
}

TEST_F(HotkeyStorm, KeyboardsMayComeAndGoWhileTheKeyIsHeld) {
    const auto field = openQtField(session);
    const std::vector<std::pair<QString, QStringList>> changes{
        {u"setxkbmap"_qs, {u"de"_qs}},
        {u"xinput"_qs, {u"disable"_qs, u"Xvfb keyboard"_qs}},
        {u"xinput"_qs, {u"enable"_qs, u"Xvfb keyboard"_qs}},
        {u"xinput"_qs, {u"create-master"_qs, u"second"_qs}},
        {u"xinput"_qs, {u"remove-master"_qs, u"second keyboard"_qs}},
        {u"setxkbmap"_qs, {u"us"_qs}},
    };
    activate(session, field);
    desktop.say(u"Held all along."_qs);
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    for (const auto& [program, arguments] : changes) {
        int code = 0;
        session.run(program, arguments, &code);
        EXPECT_EQ(code, 0) << arguments.join(u' ').toStdString();
        EXPECT_EQ(statusWord(), u"recording"_qs) << arguments.join(u' ').toStdString();
    }
    desktop.speak();
    desktop.release();
    EXPECT_EQ(desktop.awaitRun(before).value(u"reason"_qs).toString(), u"completed"_qs);
    expectReady(field, u"After the change."_qs);
    session.end(*field.process);
}

TEST_F(HotkeyStorm, AKeyboardThatIsUnpluggedWhileItsKeyIsHeldLetsGo) {
    const auto field = openQtField(session);
    activate(session, field);
    session.run(u"xinput"_qs, {u"create-master"_qs, u"unplugged"_qs});
    const auto id = session.run(u"xinput"_qs, {u"list"_qs, u"--id-only"_qs, u"unplugged pointer"_qs}).trimmed();
    desktop.say({});
    storm.typeOn(id.toUShort());
    storm.press(holdKey);
    ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
    session.run(u"xinput"_qs, {u"remove-master"_qs, u"unplugged pointer"_qs});
    EXPECT_TRUE(waitUntil([&] { return statusWord() != u"recording"; }, 10s)) << "it records with no key to end it";
    expectReady(field, u"After it was unplugged."_qs);
    session.end(*field.process);
}

TEST_F(HotkeyStorm, AnotherProgramsGrabOfTheKeyDoesNotHideIt) {
    const auto field = openQtField(session);
    EXPECT_TRUE(storm.grabKey(holdKey));
    expectReady(field, u"Grabbed by another."_qs);
    session.end(*field.process);
}

} // namespace
