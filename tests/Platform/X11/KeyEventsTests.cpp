#include "Platform/Linux/X11/ServerTime.h"
#include "Platform/Linux/X11/VirtualKeyCodes.h"
#include "Platform/Linux/X11/X11KeyEventSource.h"
#include "Support/Async.h"
#include "Support/DesktopShell.h"
#include "Support/XSession.h"

#include <gmock/gmock.h>

#include <thread>

#include <linux/input-event-codes.h>

namespace quillo {

void PrintTo(const KeyEvent& event, std::ostream* out) {
    *out << "type " << static_cast<int>(event.type) << " key " << event.keyCode << " flags 0x" << std::hex
         << event.flags << std::dec << (event.isAutoRepeat ? " repeat" : "");
}

namespace {

using test::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;

KeyEvent down(uint16_t key, uint64_t flags = 0) { return {KeyEventType::keyDown, key, flags, false}; }
KeyEvent up(uint16_t key, uint64_t flags = 0) { return {KeyEventType::keyUp, key, flags, false}; }
KeyEvent changed(uint16_t key, uint64_t flags) { return {KeyEventType::flagsChanged, key, flags, false}; }

class KeyEventsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_session = std::make_unique<test::XSession>(); }
    static void TearDownTestSuite() { s_session.reset(); }

    void SetUp() override { s_session->setLayout(u"us"_qs); }

    void start(std::vector<KeyCombination> consumed = {}) {
        m_source = createX11KeyEventSource(m_guard);
        ASSERT_TRUE(m_source);
        ASSERT_TRUE(m_source->start(
            std::move(consumed), [this](const KeyEvent& event) { m_events.push_back(event); },
            [this](KeyEventSourceState state) { m_states.push_back(state); }));
    }

    static void chord(uint16_t modifier, uint16_t key) {
        s_session->physicalKey(modifier, true);
        s_session->tapPhysicalKey(key);
        s_session->physicalKey(modifier, false);
    }
    /// Presses a key last, so that everything before it has been delivered when it arrives; it is not kept.
    void settle() {
        s_session->tapPhysicalKey(KEY_F12);
        const auto isLast = [](const KeyEvent& event) {
            return event.keyCode == 111 && event.type == KeyEventType::keyUp;
        };
        ASSERT_TRUE(waitUntil([&] { return !m_events.empty() && isLast(m_events.back()); }));
        std::erase_if(m_events, [](const KeyEvent& event) { return event.keyCode == 111; });
    }

    static inline std::unique_ptr<test::XSession> s_session;
    std::shared_ptr<InjectionGuard> m_guard = std::make_shared<InjectionGuard>();
    std::vector<KeyEvent> m_events;
    std::vector<KeyEventSourceState> m_states;
    std::unique_ptr<KeyEventSource> m_source;
};

TEST(VirtualKeyCodes, EveryCodeFindsItsWayBack) {
    std::set<uint16_t> seen;
    for (uint16_t evdev = 0; evdev < 0x300; ++evdev) {
        if (const auto key = virtualKeyCodeForEvdev(evdev)) {
            EXPECT_THAT(evdevCodesForVirtualKeyCode(*key), testing::Contains(evdev));
            seen.insert(*key);
        }
    }
    // All of a full keyboard: 26 letters, 10 digits, 12 signs, 20 function keys, 9 modifiers and the rest.
    EXPECT_GE(seen.size(), 118U);
    EXPECT_EQ(virtualKeyCodeForEvdev(KEY_V), 9);
    EXPECT_EQ(virtualKeyCodeForEvdev(KEY_RIGHTMETA), keycode::rightCommand);
    EXPECT_EQ(virtualKeyCodeForEvdev(KEY_MAX), std::nullopt);
}

TEST_F(KeyEventsTest, ReportsPressReleaseAndSides) {
    start();
    for (const uint16_t key : {KEY_RIGHTMETA, KEY_LEFTSHIFT})
        s_session->physicalKey(key, true);
    s_session->tapPhysicalKey(KEY_A);
    for (const uint16_t key : {KEY_RIGHTMETA, KEY_LEFTSHIFT})
        s_session->physicalKey(key, false);
    settle();
    const uint64_t super = keyflag::command | keyflag::rightCommand;
    const uint64_t shift = keyflag::shift | keyflag::leftShift;
    EXPECT_THAT(m_events, ElementsAre(changed(keycode::rightCommand, super), changed(keycode::leftShift, super | shift),
                                      down(0, super | shift), up(0, super | shift),
                                      changed(keycode::rightCommand, shift), changed(keycode::leftShift, 0)));
}

TEST_F(KeyEventsTest, KnowsPhysicalKeysUnderAnyLayout) {
    start();
    for (const auto& [layout, group] : {std::pair{u"ru"_qs, 0U}, {u"us,de"_qs, 1U}, {u"fr"_qs, 0U}}) {
        s_session->setLayout(layout, group);
        m_events.clear();
        s_session->tapPhysicalKey(KEY_Q);
        settle();
        EXPECT_THAT(m_events, ElementsAre(down(12), up(12))) << layout.toStdString();
    }
}

TEST_F(KeyEventsTest, ConsumesCombinationsUnderEveryLock) {
    const test::TextFieldProgram field(*s_session);
    start({{keycode::space, keyflag::option}});
    EXPECT_THAT(m_source->unavailableCombinations(), IsEmpty());
    for (const bool capsLock : {false, true}) {
        s_session->setCapsLock(capsLock);
        chord(KEY_LEFTALT, KEY_SPACE);
        settle();
        const uint64_t alt = keyflag::option | keyflag::leftOption;
        EXPECT_THAT(m_events, ElementsAre(changed(keycode::leftOption, alt), down(keycode::space, alt),
                                          up(keycode::space, alt), changed(keycode::leftOption, 0)));
        m_events.clear();
    }
    s_session->setCapsLock(false);
    s_session->tapPhysicalKey(KEY_X);
    EXPECT_TRUE(field.waitForText(u"x"_qs)) << field.text().toStdString();

    // Once stopped, nothing is held back.
    m_source->stop();
    chord(KEY_RIGHTSHIFT, KEY_SPACE);
    EXPECT_TRUE(field.waitForText(u"x "_qs)) << field.text().toStdString();
}

TEST_F(KeyEventsTest, KindsOfModifiersFollowTheLayout) {
    const uint64_t alt = keyflag::rightOption | keyflag::option;
    struct {
        const char *layout, *option;
        unsigned group;
        uint16_t key;
        uint64_t flags;
    } const cases[] = {
        {"us", "", 0, KEY_RIGHTALT, alt},
        {"de", "", 0, KEY_RIGHTALT, keyflag::rightOption}, // AltGr
        {"us,de", "", 1, KEY_RIGHTALT, keyflag::rightOption},
        {"us", "ctrl:nocaps", 0, KEY_CAPSLOCK, keyflag::control},
        {"us", "altwin:swap_lalt_lwin", 0, KEY_LEFTALT, keyflag::leftOption | keyflag::command},
    };
    start();
    for (const auto& [layout, option, group, key, flags] : cases) {
        s_session->setLayout(QString::fromLatin1(layout), group, QString::fromLatin1(option));
        s_session->tapPhysicalKey(KEY_F11);
        settle();
        m_events.clear();
        chord(key, KEY_SPACE);
        settle();
        const uint16_t code = *virtualKeyCodeForEvdev(key);
        EXPECT_THAT(m_events, ElementsAre(changed(code, flags), down(keycode::space, flags), up(keycode::space, flags),
                                          changed(code, 0)))
            << layout << ' ' << option;
    }
    // What is grabbed is the combination that the events report.
    s_session->setLayout(u"us"_qs, 0, u"ctrl:nocaps"_qs);
    m_source->setConsumed({{keycode::space, keyflag::control}});
    const test::TextFieldProgram field(*s_session);
    chord(KEY_CAPSLOCK, KEY_SPACE);
    s_session->tapPhysicalKey(KEY_X);
    EXPECT_TRUE(field.waitForText(u"x"_qs)) << field.text().toStdString();
}

TEST_F(KeyEventsTest, AHiddenTapOpensNoLauncherAndIsNoKey) {
    const test::TextFieldProgram field(*s_session);
    test::DesktopShell shell;
    start();
    for (const uint16_t key : {KEY_RIGHTMETA, KEY_LEFTALT}) {
        s_session->physicalKey(key, true);
        settle();
        m_events.clear();
        const int before = shell.launches();
        m_source->hideLoneTap();
        s_session->physicalKey(key, false);
        settle();
        EXPECT_EQ(m_events.size(), 1U);
        EXPECT_EQ(shell.launches(), before);
        s_session->tapPhysicalKey(key);
        EXPECT_EQ(shell.launches(), before + 1) << "without the hidden tap this shell opens its launcher";
    }
    s_session->tapPhysicalKey(KEY_X);
    EXPECT_TRUE(field.waitForText(u"x"_qs)) << field.text().toStdString();
}

TEST_F(KeyEventsTest, AKeyIsDownWhileItIsDownOnOneOfTwoKeyboards) {
    start();
    s_session->physicalKey(KEY_F5, true);
    s_session->run(u"xdotool"_qs, {u"keydown"_qs, u"71"_qs}); // another device
    s_session->run(u"xdotool"_qs, {u"keyup"_qs, u"71"_qs});
    settle();
    EXPECT_THAT(m_events, testing::Not(testing::Contains(up(96))));
    s_session->physicalKey(KEY_F5, false);
    settle();
    EXPECT_EQ(m_events.back(), up(96));
}

TEST_F(KeyEventsTest, ReportsCombinationsOfOthersAndStillSeesThem) {
    test::DesktopShell other;
    other.hold(KEY_SPACE, XCB_MOD_MASK_1);
    const KeyCombination taken{keycode::space, keyflag::option};
    const KeyCombination free{96, keyflag::control | keyflag::command};
    start({taken, free});
    EXPECT_THAT(m_source->unavailableCombinations(), ElementsAre(taken));
    const KeyCombination unasked{keycode::space, keyflag::control};
    EXPECT_THAT(m_source->freeAmong({taken, unasked, free}), ElementsAre(unasked, free));
    chord(KEY_LEFTALT, KEY_SPACE);
    settle();
    EXPECT_EQ(m_events.size(), 4U);
}

TEST_F(KeyEventsTest, SeesKeysWhileAnotherClientHoldsTheKeyboard) {
    start();
    const test::PhysicalKeyboard other(qEnvironmentVariable("DISPLAY"));
    ASSERT_TRUE(other.grabKeyboard());
    s_session->tapPhysicalKey(KEY_F5);
    settle();
    EXPECT_THAT(m_events, ElementsAre(down(96), up(96)));
}

TEST_F(KeyEventsTest, RepetitionIsMarkedAndNeverARelease) {
    start({{96, 0}});
    s_session->run(u"xset"_qs, {u"r"_qs, u"rate"_qs, u"120"_qs, u"50"_qs});
    s_session->physicalKey(KEY_F5, true);
    ASSERT_TRUE(waitUntil([&] { return m_events.size() >= 4; })) << m_events.size();
    EXPECT_TRUE(m_guard->isOwnGrabActive());
    s_session->physicalKey(KEY_F5, false);
    settle();
    EXPECT_EQ(m_events.front(), down(96));
    EXPECT_EQ(m_events.back(), up(96));
    for (size_t index = 1; index + 1 < m_events.size(); ++index)
        EXPECT_EQ(m_events[index], (KeyEvent{KeyEventType::keyDown, 96, 0, true}));
    EXPECT_FALSE(m_guard->isOwnGrabActive());
}

TEST_F(KeyEventsTest, TellsHowLateAKeyIsHeardOf) {
    using namespace std::chrono_literals;
    start();
    settle();
    s_session->physicalKey(KEY_F5, true);
    std::this_thread::sleep_for(300ms); // nothing is awaited: this is the busy main thread that hears of the key late
    s_session->physicalKey(KEY_F5, false);
    settle();
    ASSERT_THAT(m_events, ElementsAre(down(96), up(96)));
    EXPECT_GE(m_events[0].age, 280ms);
    EXPECT_GE(m_events[0].age - m_events[1].age, 280ms);
    EXPECT_LT(m_events[0].age, 10s);
}

TEST(ServerTime, IsNeitherFooledByDistanceNorByDriftNorByTheWrap) {
    using namespace std::chrono_literals;
    for (const uint32_t first : {0U, 5'000U, 0xFFFFFF00U}) {
        ServerTime time;
        ServerTime::Instant now{90h};
        // A minute at a time, while the server's clock loses half a millisecond in each.
        for (uint32_t minute = 0; minute < 100; ++minute, now += 1min) {
            const uint32_t stamp = first + minute * 60'000 - minute / 2;
            EXPECT_LE(time.ageOf(stamp, now), 3ms) << minute;
            const auto late = time.ageOf(stamp + 10, now + 410ms);
            EXPECT_GE(late, 400ms) << minute;
            EXPECT_LE(late, 403ms) << minute;
        }
    }
}

TEST_F(KeyEventsTest, AnnouncedKeysAreNotTheUsers) {
    start();
    for (const bool press : {true, false})
        m_guard->expect(KEY_V + x11KeycodeOffset, press);
    // The same key from the user's own keyboard is never mistaken for ours, whatever was announced.
    s_session->tapPhysicalKey(KEY_V);
    settle();
    EXPECT_THAT(m_events, ElementsAre(down(9), up(9)));
    m_events.clear();
    s_session->run(u"xdotool"_qs, {u"key"_qs, u"55"_qs});
    s_session->run(u"xdotool"_qs, {u"key"_qs, u"56"_qs});
    settle();
    EXPECT_THAT(m_events, ElementsAre(down(11), up(11))) << "a key of the test device that nobody announced is a key";
}

TEST_F(KeyEventsTest, AKeyboardThatComesIsReportedAndHeldKeysAreSettled) {
    s_session->physicalKey(KEY_RIGHTMETA, true);
    start();
    EXPECT_TRUE(m_source->isPhysicallyDown(keycode::rightCommand));
    s_session->run(u"xinput"_qs, {u"create-master"_qs, u"spare"_qs});
    ASSERT_TRUE(waitUntil([&] { return !m_states.empty(); }));
    EXPECT_EQ(m_states.front(), KeyEventSourceState::keyboardChanged);
    EXPECT_THAT(m_events, IsEmpty()) << "what is still held was not released";
    s_session->physicalKey(KEY_RIGHTMETA, false);
    settle();
    EXPECT_THAT(m_events, ElementsAre(changed(keycode::rightCommand, 0)));
    EXPECT_FALSE(m_source->isPhysicallyDown(keycode::rightCommand));
    s_session->run(u"xinput"_qs, {u"remove-master"_qs, u"spare keyboard"_qs});
}

TEST(KeyEventsWithoutServer, SaysNotAvailable) {
    const QByteArray display = qgetenv("DISPLAY");
    qputenv("DISPLAY", ":0x");
    EXPECT_EQ(createX11KeyEventSource(std::make_shared<InjectionGuard>()), nullptr);
    qputenv("DISPLAY", display);
}

TEST(KeyEventsLost, ReportsTheEndOfTheServer) {
    auto session = std::make_unique<test::XSession>();
    auto source = createX11KeyEventSource(std::make_shared<InjectionGuard>());
    std::vector<KeyEventSourceState> states;
    ASSERT_TRUE(source->start(
        {}, [](const KeyEvent&) {}, [&](KeyEventSourceState state) { states.push_back(state); }));
    session.reset();
    ASSERT_TRUE(waitUntil([&] { return !states.empty(); }));
    EXPECT_THAT(states, ElementsAre(KeyEventSourceState::lost));
    EXPECT_FALSE(source->isTrusted());
}

} // namespace
} // namespace quillo
