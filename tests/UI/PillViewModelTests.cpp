#include "UI/Pill/PillViewModel.h"
#include "UI/RecordingFixture.h"

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

struct PillViewModelTest : testing::Test, RecordingFixture {
    bool wanted = true;
    PillViewModel pill{store, clock, [](const QString& name) -> QString { return name + u" %1"_qs; },
                       [this] { return wanted; }};
    QString key(const char* name) { return QString::fromUtf8(name) + u" %1"_qs; }
};

struct Case {
    const char* name;
    std::vector<RecordingAction> actions;
    PillPhase phase;
    QString text;
    bool transcript = false;
};

TEST_F(PillViewModelTest, ShowsEachState) {
    using namespace action;
    const StartRecording start;
    const SessionStarted session{u"s"_qs, false};
    const PartialTranscriptReceived partial{u"Dear\nAda"_qs, 1, {}, {}};
    const TargetApplicationCaptured target{u"Editor"_qs};
    const StopRecording stop;
    const RecordingFailed failed{RecordingError(RecordingError::Unknown{{}, {u"No\nsound"_qs}})};
    const std::vector<Case> cases{
        {"idle", {}, PillPhase::hidden, {}},
        {"hovering", {SetHovering{true}}, PillPhase::hovering, key("pill.ready")},
        {"connecting", {start}, PillPhase::connecting, key("pill.connecting")},
        {"recording", {start, session}, PillPhase::recording, key("pill.listening")},
        {"target", {start, session, target}, PillPhase::recording, u"pill.listeningFor Editor"_qs},
        {"partial", {start, session, target, partial}, PillPhase::recording, u"Dear Ada"_qs, true},
        {"offline", {start, session, partial, SwitchedToOffline{}}, PillPhase::recordingOffline, key("pill.offline")},
        {"processing", {start, session, StopRecording{}}, PillPhase::processing, key("pill.processing")},
        {"command", {start, session, stop, CommandProcessing{}}, PillPhase::command, key("pill.commandProcessing")},
        {"failed", {start, failed}, PillPhase::error, key("No sound")},
    };
    for (const auto& wantedCase : cases) {
        SCOPED_TRACE(wantedCase.name);
        RecordingState state;
        for (const auto& each : wantedCase.actions)
            state = reducer.reduce(state, each).state;
        const auto shown = presentPill(state, [this](const QString& name) { return key(qPrintable(name)); });
        EXPECT_EQ(shown.phase, wantedCase.phase);
        EXPECT_EQ(shown.text, wantedCase.text);
        EXPECT_EQ(shown.isTranscript, wantedCase.transcript);
    }
}

TEST_F(PillViewModelTest, CancelledIsToldFromFailed) {
    record();
    send({action::ShowCancelledMessage{}});
    EXPECT_EQ(pill.phase(), u"cancelled");
    clock.advance(PillViewModel::cancelledDuration);
    EXPECT_FALSE(pill.isVisible());
    EXPECT_TRUE(store.state().status.is<RecordingState::Idle>());
}

TEST_F(PillViewModelTest, AnErrorGoesByItselfButNotUnderThePointer) {
    send({action::StartRecording{}, action::ConnectionFailed{u"refused"_qs}});
    clock.advance(PillViewModel::errorDuration - 1ms);
    EXPECT_EQ(pill.phase(), u"error");
    pill.setHovering(true);
    clock.advance(1h);
    EXPECT_EQ(pill.phase(), u"error");
    EXPECT_TRUE(pill.isVisible());
    pill.setHovering(false);
    clock.advance(PillViewModel::afterHoverDuration - 1ms);
    EXPECT_TRUE(pill.isVisible());
    clock.advance(1ms);
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(sent.back(), u"reset");
}

TEST_F(PillViewModelTest, AnErrorsTimerDoesNotEndTheNextRecording) {
    send({action::StartRecording{}, action::ConnectionFailed{u"refused"_qs}});
    clock.advance(PillViewModel::errorDuration / 2);
    record();
    clock.advance(PillViewModel::errorDuration);
    EXPECT_EQ(pill.phase(), u"recording");
}

TEST_F(PillViewModelTest, AHintOutlivesTheCompletionThatClearsIt) {
    record();
    send({action::StopRecording{}, action::ShowSavedToHistory{}, action::RecordingCompleted{}});
    EXPECT_FALSE(store.state().savedToHistoryHintVisible);
    EXPECT_EQ(pill.phase(), u"hint");
    EXPECT_EQ(pill.text(), key("pill.savedToHistory"));
    clock.advance(PillViewModel::hintDuration - 1ms);
    EXPECT_TRUE(pill.isVisible());
    clock.advance(1ms);
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(PillViewModelTest, ANewRecordingReplacesTheHint) {
    send({action::ShowSavedToHistory{}});
    EXPECT_EQ(pill.phase(), u"hint");
    record();
    EXPECT_EQ(pill.phase(), u"recording");
    send({action::CancelRecording{}});
    EXPECT_FALSE(pill.isVisible());
}

TEST_F(PillViewModelTest, NoTimerRunsWhileNothingIsShown) {
    EXPECT_EQ(clock.pending(), 0U);
    record();
    EXPECT_GT(clock.pending(), 0U);
    send({action::CancelRecording{}});
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(PillViewModelTest, ElapsedTimeFollowsTheClock) {
    record();
    EXPECT_EQ(pill.elapsed(), u"0:00");
    clock.advance(999ms);
    EXPECT_EQ(pill.elapsed(), u"0:00");
    clock.advance(1ms);
    EXPECT_EQ(pill.elapsed(), u"0:01");
    clock.advance(74s);
    EXPECT_EQ(pill.elapsed(), u"1:15");
    send({action::CancelRecording{}});
    record();
    EXPECT_EQ(pill.elapsed(), u"0:00");
}

TEST_F(PillViewModelTest, ShowsTheLouderOfTwoLevels) {
    record();
    send({action::AudioLevelUpdated{0.25F}, action::SystemAudioLevelUpdated{0.5F}});
    EXPECT_FLOAT_EQ(pill.level(), 0.5F);
    send({action::StopRecording{}});
    EXPECT_FLOAT_EQ(pill.level(), 0);
}

TEST_F(PillViewModelTest, StaysAwayWhenNotWanted) {
    wanted = false;
    record();
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(PillViewModelTest, KeepsWhatItShowedWhileItFades) {
    record();
    send({action::PartialTranscriptReceived{u"Dear Ada"_qs, 1, {}, {}}, action::RecordingCompleted{}});
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(pill.text(), u"Dear Ada");
}

TEST(TranscriptTailTest, KeepsTheEndInWholeWords) {
    struct Row {
        const char* text;
        const char* tail;
    };
    for (const auto& [text, tail] : std::initializer_list<Row>{
             {"", ""},
             {"  one \n two ", "one two"},
             {"exactly twenty chars", "exactly twenty chars"},
             {"the quick brown fox jumps over", "…brown fox jumps over"},
             {"abcdefghijklmnopqrstuvwxyz", "…ghijklmnopqrstuvwxyz"},
             {"谢谢你星期一寄来的信我已经读了两遍我认为我们应该", "…期一寄来的信我已经读了两遍我认为我们应该"},
         })
        EXPECT_EQ(transcriptTail(QString::fromUtf8(text), 20), QString::fromUtf8(tail));
}

TEST(TranscriptTailTest, NeverCutsInsideAGrapheme) {
    const auto family = QString::fromUtf8("👩‍👩‍👧");
    const auto tail = transcriptTail(family.repeated(10), 20);
    ASSERT_TRUE(tail.startsWith(QChar(0x2026)));
    EXPECT_EQ(tail.mid(1), family.repeated(2));
}

TEST(ElapsedTextTest, Formats) {
    EXPECT_EQ(elapsedText(-1), u"0:00");
    EXPECT_EQ(elapsedText(59), u"0:59");
    EXPECT_EQ(elapsedText(754), u"12:34");
    EXPECT_EQ(elapsedText(3723), u"1:02:03");
}

} // namespace
