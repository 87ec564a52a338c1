#include "UI/FakeApplication.h"
#include "UI/Welcome/WelcomeViewModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace quillo;
using namespace quillo::test;

namespace {

struct WelcomeModelTest : testing::Test {
    FakeApplication application;
    ManualClock clock{EventExecutor::main()};
    AccountModel account{application};

    std::unique_ptr<WelcomeViewModel> welcomeAt(const char* step) {
        auto welcome = std::make_unique<WelcomeViewModel>(application.hooks, account, clock);
        welcome->setShown(true);
        welcome->goTo(QString::fromLatin1(step));
        return welcome;
    }
};

TEST_F(WelcomeModelTest, KeyLightsAndIsProvenByItsRelease) {
    const auto welcome = welcomeAt("hotkey");
    auto& trial = welcome->hotkey();
    ASSERT_TRUE(application.hotkeyObserver);
    application.hotkeyObserver(false); // held since before the step
    EXPECT_FALSE(trial.hasReleased());
    application.hotkeyObserver(true);
    EXPECT_TRUE(trial.isDown() && trial.hasPressed());
    EXPECT_FALSE(trial.hasReleased());
    application.hotkeyObserver(false);
    EXPECT_FALSE(trial.isDown());
    EXPECT_TRUE(trial.hasReleased());
}

TEST_F(WelcomeModelTest, KeyThatDoesNotComeIsSpokenOfUntilItComes) {
    const auto welcome = welcomeAt("hotkey");
    auto& trial = welcome->hotkey();
    clock.advance(HotkeyTrial::patience - std::chrono::milliseconds(1));
    EXPECT_FALSE(trial.isOverdue());
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(trial.isOverdue());
    application.hotkeyObserver(true);
    EXPECT_TRUE(trial.isOverdue()) << "half of it has come";
    application.hotkeyObserver(false);
    EXPECT_FALSE(trial.isOverdue());
    clock.advance(2 * HotkeyTrial::patience);
    EXPECT_FALSE(trial.isOverdue());
}

TEST_F(WelcomeModelTest, TheKeyThatIsPressedBecomesTheHotkey) {
    auto welcome = welcomeAt("hotkey");
    auto& trial = welcome->hotkey();
    application.hotkeyObserver(true);
    application.hotkeyObserver(false);
    trial.choose(false);
    EXPECT_TRUE(trial.isChoosing());
    application.hotkeyChosen({}, u"needed for typing"_qs);
    EXPECT_FALSE(trial.isChoosing());
    EXPECT_EQ(trial.problem(), u"needed for typing"_qs);
    EXPECT_TRUE(trial.hasReleased());
    trial.choose(false);
    application.hotkeyChosen(u"F9"_qs, {});
    EXPECT_EQ(trial.name(), u"F9"_qs);
    EXPECT_EQ(trial.problem(), QString());
    EXPECT_FALSE(trial.hasReleased()) << "another key has yet to be proven";
    trial.choose(true);
    application.hotkeyChosen(u"Ctrl+F9"_qs, {});
    EXPECT_EQ(trial.toggleName(), u"Ctrl+F9"_qs);
    trial.choose(true);
    welcome->next();
    EXPECT_FALSE(application.hotkeyChosen) << "the step was left, and the next key is a key again";
}

TEST_F(WelcomeModelTest, AHotkeyOfAnotherProgramIsShownWithAFreeOne) {
    application.hotkeyConflict = {u"taken"_qs, u"Use Ctrl+Alt+Space"_qs};
    const auto welcome = welcomeAt("hotkey");
    auto& trial = welcome->hotkey();
    EXPECT_EQ(trial.conflict(), u"taken"_qs);
    EXPECT_EQ(trial.offer(), u"Use Ctrl+Alt+Space"_qs);
    trial.takeOffer();
    EventExecutor::main().drain();
    EXPECT_EQ(trial.conflict(), QString());
    EXPECT_EQ(trial.toggleName(), u"Ctrl+Alt+Space"_qs);
}

/// Whatever ends a step: the hotkey dictates again and the microphone is let go, once.
TEST_F(WelcomeModelTest, EveryWayOutEndsWhatRuns) {
    struct Way {
        const char* name;
        std::function<void(std::unique_ptr<WelcomeViewModel>&)> take;
    };
    const std::vector<Way> ways{
        {"next", [](auto& welcome) { welcome->next(); }},
        {"back", [](auto& welcome) { welcome->back(); }},
        {"hidden", [](auto& welcome) { welcome->setShown(false); }},
        {"hidden and gone",
         [](auto& welcome) {
             welcome->setShown(false);
             welcome.reset();
         }},
        {"gone", [](auto& welcome) { welcome.reset(); }},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        auto welcome = welcomeAt("hotkey");
        application.hotkeyObserver(true);
        const auto late = application.hotkeyObserver;
        way.take(welcome);
        EXPECT_FALSE(application.hotkeyObserver);
        late(true);
        EXPECT_TRUE(!welcome || !welcome->hotkey().isDown());

        welcome.reset();
        welcome = welcomeAt("microphone");
        EXPECT_TRUE(application.isMicrophoneOpen);
        const auto lateLevel = application.microphoneLevel;
        way.take(welcome);
        EXPECT_FALSE(application.isMicrophoneOpen);
        lateLevel(0.5F);
        EXPECT_TRUE(!welcome || welcome->microphone().level() == 0);
        welcome.reset();
        EXPECT_FALSE(application.isUnbalanced);
        EXPECT_EQ(clock.pending(), 0U);
    }
}

TEST_F(WelcomeModelTest, FailedMicrophoneIsTriedAgainOnRequest) {
    auto welcome = welcomeAt("microphone");
    auto& microphone = welcome->microphone();
    const auto failFirst = application.microphoneFailure;
    failFirst(u"refused"_qs);
    EXPECT_EQ(microphone.phase(), u"failed");
    EXPECT_EQ(microphone.reason(), u"refused");
    microphone.begin();
    EXPECT_EQ(microphone.phase(), u"listening");
    EXPECT_TRUE(microphone.reason().isEmpty());
    application.microphoneFailure(QString());
    microphone.select(2); // another one may work
    EXPECT_EQ(microphone.phase(), u"listening");
    welcome.reset();
    EXPECT_EQ(application.microphoneTests, 3);
    EXPECT_FALSE(application.isMicrophoneOpen || application.isUnbalanced);
}

TEST_F(WelcomeModelTest, ListensToTheMicrophoneThatIsChosen) {
    const auto welcome = welcomeAt("microphone");
    auto& microphone = welcome->microphone();
    EXPECT_EQ(microphone.current(), 1);
    const auto former = application.microphoneLevel;
    microphone.select(0);
    microphone.select(2);
    microphone.select(2);
    microphone.select(3);
    EXPECT_EQ(application.chosenMicrophones, QStringList({QString(), u"built-in"_qs}));
    EXPECT_EQ(application.microphoneTests, 3);
    former(1);
    EXPECT_EQ(microphone.level(), 0) << "a level of the microphone chosen before";
    application.microphoneLevel(0.5F);
    EXPECT_EQ(microphone.level(), 0.5F);
    clock.advance(MicrophoneTest::patience);
    EXPECT_TRUE(microphone.isOverdue());
    EXPECT_FALSE(application.isUnbalanced);
}

TEST(SpeechDetectorTest, HearsSpeechOnly) {
    struct Row {
        const char* name;
        std::function<float(double)> level; ///< of the time in seconds
        bool isSpeech;
    };
    const auto syllables = [](double loudest) {
        return [=](double time) { return static_cast<float>(loudest * std::abs(std::sin(time * 9))); };
    };
    const std::vector<Row> rows{
        {"silence", [](double) { return 0.05F; }, false},
        {"hum after silence",
         [](double time) { return time < 0.5 ? 0.0F : 0.5F + 0.03F * std::sin(40.0F * static_cast<float>(time)); },
         false},
        {"two knocks", [](double time) { return std::fmod(time, 2.0) < 0.08 ? 0.9F : 0.05F; }, false},
        {"no number", [](double) { return std::numeric_limits<float>::quiet_NaN(); }, false},
        {"far whisper", syllables(0.2), false},
        {"quiet voice", syllables(0.45), true},
        {"loud voice", syllables(1.2), true},
    };
    for (const auto milliseconds : {5, 20, 100})
        for (const auto& row : rows) {
            SpeechDetector detector;
            bool heard = false;
            for (int time = 0; time < 4000; time += milliseconds)
                heard = detector.hear(row.level(time / 1000.0), Clock::Instant(std::chrono::milliseconds(time)));
            EXPECT_EQ(heard, row.isSpeech) << row.name << " every " << milliseconds << " ms";
        }
}

TEST_F(WelcomeModelTest, AccountTellsTheBrowsersTurnFromOtherWork) {
    int successes = 0;
    QObject::connect(&account, &AccountModel::signInSucceeded, [&] { ++successes; });
    const auto become = [&](AccountState state) {
        application.accountState = std::move(state);
        account.refresh();
    };
    EXPECT_EQ(account.phase(), u"anonymous");
    account.signIn();
    EXPECT_EQ(account.phase(), u"waiting");
    account.registerAccount();
    EXPECT_EQ(application.accountRequests, QStringList(u"signIn"_qs)) << "one at a time";
    account.cancel();
    EXPECT_EQ(account.phase(), u"anonymous");

    account.registerAccount();
    become({.kind = AccountState::Kind::anonymous, .message = u"refused"_qs});
    EXPECT_EQ(account.message(), u"refused");
    become({.kind = AccountState::Kind::anonymous, .isBusy = true});
    EXPECT_EQ(account.phase(), u"busy") << "not begun here";
    EXPECT_EQ(successes, 0);

    become({});
    account.signIn();
    become({.kind = AccountState::Kind::signedIn, .email = u"ada@example.org"_qs});
    EXPECT_EQ(account.phase(), u"signedIn");
    EXPECT_EQ(successes, 1);
    account.signOut();
    EXPECT_EQ(account.phase(), u"busy");
    become({.kind = AccountState::Kind::signedIn, .message = u"no network"_qs});
    EXPECT_EQ(successes, 1) << "still signed in is not signed in anew";
}

TEST_F(WelcomeModelTest, AccountIsNamedByWhatIsKnown) {
    struct Row {
        const char* name;
        const char* email;
        const char* title;
        const char* detail;
        const char* initial;
    };
    for (const auto& row :
         std::initializer_list<Row>{{"Ada  Lovelace", "ada@example.org", "Ada Lovelace", "ada@example.org", "A"},
                                    {" ", "zoe@example.org", "zoe@example.org", "", "Z"},
                                    {"𐐨da", "", "𐐨da", "", "𐐀"}}) {
        application.accountState = {.kind = AccountState::Kind::signedIn,
                                    .name = QString::fromUtf8(row.name),
                                    .email = QString::fromUtf8(row.email)};
        account.refresh();
        EXPECT_EQ(account.title(), QString::fromUtf8(row.title));
        EXPECT_EQ(account.detail(), QString::fromUtf8(row.detail));
        EXPECT_EQ(account.initial(), QString::fromUtf8(row.initial));
    }
}

TEST_F(WelcomeModelTest, LeavesOutWhatTheApplicationCannotDo) {
    application.hotkey.clear();
    application.hooks.hotkeySteps = {};
    application.hooks.startMicrophoneTest = {};
    WelcomeViewModel welcome(application.hooks, account, clock);
    welcome.setShown(true);
    EXPECT_EQ(welcome.step(), u"language");
    welcome.goTo(u"hotkey"_qs);
    EXPECT_EQ(welcome.step(), u"language");
    welcome.next();
    EXPECT_EQ(welcome.step(), u"account");
    welcome.next();
    EXPECT_EQ(welcome.step(), u"ready");
    application.isLaunchAtLoginRefused = true;
    welcome.setLaunchAtLogin(true);
    EXPECT_FALSE(welcome.launchAtLogin()) << "what the desktop made of it, not what was asked";
    welcome.next();
    EXPECT_EQ(application.finishedWelcomes, 1);
}

} // namespace
