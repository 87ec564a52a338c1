// The hotkeys in a real session, under everything that other hands and programs do to a keyboard.

#include "KeyStorm.h"
#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <gtest/gtest.h>

#include <random>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

constexpr uint8_t holdKey = DesktopSession::rightSuper;
constexpr uint8_t altKey = 64;
constexpr uint8_t spaceKey = 65;
constexpr uint8_t escapeKey = 9;
constexpr std::array<uint8_t, 6> otherKeys{38, 39, 40, 50, 37, 133}; // a, s, d, Shift, Control, Left Super

class HotkeyStorm : public testing::Test {
protected:
    static void SetUpTestSuite() { s_desktop = std::make_unique<ScriptedDesktop>(); }
    static void TearDownTestSuite() { s_desktop.reset(); }

    void TearDown() override {
        if (HasFailure()) {
            session.keepFolder();
            std::cerr << "logs: " << session.folder().toStdString() << "\n";
        }
    }

    QString statusWord() { return session.status().value(QStringLiteral("status")).toString(); }
    QString display() { return session.environment().value(QStringLiteral("DISPLAY")); }

    /// Whatever happened: nothing runs, no key is stuck, and the next dictation arrives.
    void expectReady(const TargetWindow& field, const QString& text) {
        EXPECT_TRUE(waitUntil([&] { return storm.keysDown().empty(); }, 5s)) << "a key is stuck";
        EXPECT_TRUE(waitUntil(
            [&] {
                return desktop.logged(QStringLiteral("🎬 Recording START")) ==
                       desktop.logged(QStringLiteral("🏁 Recording END"));
            },
            30s))
            << "a recording did not end";
        desktop.rest();
        activate(session, field);
        const auto before = field.content();
        const auto run = desktop.dictate(text);
        EXPECT_EQ(run.value(QStringLiteral("reason")).toString(), QStringLiteral("completed"));
        EXPECT_TRUE(waitUntil([&] { return field.content() == before + text.toUtf8(); }, 5s))
            << field.content().toStdString();
        EXPECT_TRUE(session.waitForStatus(QStringLiteral("idle")));
        EXPECT_TRUE(storm.keysDown().empty());
        EXPECT_EQ(desktop.logged(QStringLiteral("🎬 Recording START")),
                  desktop.logged(QStringLiteral("🏁 Recording END")));
    }

    static inline std::unique_ptr<ScriptedDesktop> s_desktop;
    ScriptedDesktop& desktop = *s_desktop;
    DesktopSession& session = desktop.session;
    KeyStorm storm{display()};
};

TEST_F(HotkeyStorm, HundredsOfRandomEventsLeaveNothingBehind) {
    const auto first = openQtField(session);
    const auto second = openGtkField(session);
    desktop.say({});
    desktop.set("cancelRecordingOnEscape", QStringLiteral("true"));
    constexpr unsigned seed = 20260;
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return std::uniform_int_distribution(0, limit - 1)(random); };
    for (int event = 0; event < 500; ++event) {
        switch (below(12)) {
        case 0:
        case 1:
        case 2:
        case 3:
            storm.press(holdKey); // again and again while it is down, as auto-repeat does
            break;
        case 4:
        case 5:
        case 6:
            storm.release(holdKey);
            break;
        case 7:
            storm.press(altKey);
            storm.press(spaceKey);
            storm.roundTrips(below(50));
            storm.release(spaceKey);
            storm.release(altKey);
            break;
        case 8:
            storm.press(escapeKey);
            storm.release(escapeKey);
            break;
        case 9:
            storm.activateWindow(below(2) == 0 ? first.id : second.id);
            break;
        default: {
            const auto key = otherKeys[static_cast<size_t>(below(otherKeys.size()))];
            storm.press(key);
            storm.roundTrips(below(50));
            storm.release(key);
            break;
        }
        }
        // Mostly fast; sometimes slow enough for a recording to begin.
        storm.roundTrips(below(20) == 0 ? 20000 : below(400));
    }
    for (const auto key : {holdKey, altKey, spaceKey, escapeKey})
        storm.release(key);
    // A storm may well end hands-off; one press ends that.
    const auto idle = [&] {
        return !QStringList{QStringLiteral("recording"), QStringLiteral("connecting"), QStringLiteral("processing")}
                    .contains(statusWord());
    };
    if (!waitUntil(idle, 3s)) {
        desktop.press();
        desktop.release();
    }
    EXPECT_TRUE(waitUntil(idle, 20s)) << statusWord().toStdString();
    EXPECT_GT(desktop.logged(QStringLiteral("🎬 Recording START")), 5) << "the storm reached nobody";
    expectReady(first, QStringLiteral("After the storm."));
    session.end(*first.process);
    session.end(*second.process);
}

TEST_F(HotkeyStorm, AScreenLockInTheMiddleEndsWithTheRelease) {
    const auto field = openQtField(session);
    activate(session, field);
    desktop.say(QStringLiteral("Said to a locked screen."));
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    desktop.speak();
    ASSERT_TRUE(storm.grabKeyboard());
    desktop.release();
    const auto run = desktop.awaitRun(before);
    // The keys would go to the locker: nothing may be sent.
    EXPECT_FALSE(run.contains(QStringLiteral("delivery")));
    EXPECT_TRUE(waitUntil(
        [&] {
            return session.status()
                .value(QStringLiteral("message"))
                .toString()
                .startsWith(QStringLiteral("The text was not inserted: "));
        },
        5s))
        << qPrintable(session.status().value(QStringLiteral("message")).toString());
    EXPECT_EQ(field.content(), QByteArray());
    storm.ungrabKeyboard();
    expectReady(field, QStringLiteral("After the lock."));
    session.end(*field.process);
}

TEST_F(HotkeyStorm, KeyboardsMayComeAndGoWhileTheKeyIsHeld) {
    const auto field = openQtField(session);
    const std::vector<std::pair<QString, QStringList>> changes{
        {QStringLiteral("setxkbmap"), {QStringLiteral("de")}},
        {QStringLiteral("xinput"), {QStringLiteral("disable"), QStringLiteral("Xvfb keyboard")}},
        {QStringLiteral("xinput"), {QStringLiteral("enable"), QStringLiteral("Xvfb keyboard")}},
        {QStringLiteral("xinput"), {QStringLiteral("create-master"), QStringLiteral("second")}},
        {QStringLiteral("xinput"), {QStringLiteral("remove-master"), QStringLiteral("second keyboard")}},
        {QStringLiteral("setxkbmap"), {QStringLiteral("us")}},
    };
    activate(session, field);
    desktop.say(QStringLiteral("Held all along."));
    const auto before = desktop.lastRunId();
    desktop.press();
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    for (const auto& [program, arguments] : changes) {
        int code = 0;
        session.run(program, arguments, &code);
        EXPECT_EQ(code, 0) << arguments.join(u' ').toStdString();
        EXPECT_EQ(statusWord(), QStringLiteral("recording")) << arguments.join(u' ').toStdString();
    }
    desktop.speak();
    desktop.release();
    EXPECT_EQ(desktop.awaitRun(before).value(QStringLiteral("reason")).toString(), QStringLiteral("completed"));
    expectReady(field, QStringLiteral("After the change."));
    session.end(*field.process);
}

TEST_F(HotkeyStorm, AKeyboardThatIsUnpluggedWhileItsKeyIsHeldLetsGo) {
    const auto field = openQtField(session);
    activate(session, field);
    session.run(QStringLiteral("xinput"), {QStringLiteral("create-master"), QStringLiteral("unplugged")});
    const auto id = session
                        .run(QStringLiteral("xinput"),
                             {QStringLiteral("list"), QStringLiteral("--id-only"), QStringLiteral("unplugged pointer")})
                        .trimmed();
    desktop.say({});
    storm.typeOn(id.toUShort());
    storm.press(holdKey);
    ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    session.run(QStringLiteral("xinput"), {QStringLiteral("remove-master"), QStringLiteral("unplugged pointer")});
    EXPECT_TRUE(waitUntil([&] { return statusWord() != u"recording"; }, 10s)) << "it records with no key to end it";
    expectReady(field, QStringLiteral("After it was unplugged."));
    session.end(*field.process);
}

TEST_F(HotkeyStorm, AnotherProgramsGrabOfTheKeyDoesNotHideIt) {
    const auto field = openQtField(session);
    EXPECT_TRUE(storm.grabKey(holdKey));
    expectReady(field, QStringLiteral("Grabbed by another."));
    session.end(*field.process);
}

} // namespace
