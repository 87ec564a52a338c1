#include "Services/Injection/TextInjectionService.h"
#include "Support/Async.h"
#include "Support/MockAccessibility.h"
#include "Support/MockApplications.h"
#include "Support/MockKeyInjector.h"
#include "Support/MockPasteboard.h"

#include <gtest/gtest.h>

#include <memory>

namespace quillo::test {
namespace {

using namespace std::chrono_literals;

const QString dictated = u"Guten Tag, 你好 😀"_qs;

class TextInjection : public testing::Test {
protected:
    /// What became of an injection that may still be running.
    struct Outcome {
        std::optional<Delivery> delivery;
        std::optional<TextInjectionError::Code> error;
        Clock::Instant at;
    };

    TextInjection() {
        pasteboard.copy(u"before"_qs);
        readsOnPaste();
    }

    ~TextInjection() override {
        // What still waits ends with the service, on the executor.
        owned.reset();
        executor.drain();
    }

    void readsOnPaste() {
        injector.onChord = [this] { pasteboard.offers.back()->read(); };
    }
    /// Starts an injection without advancing the time.
    std::shared_ptr<Outcome> begin(const QString& text, InjectionMode mode = InjectionMode::paste,
                                   bool restore = true) {
        auto outcome = std::make_shared<Outcome>();
        const auto drive = [](Task<Delivery> task, std::shared_ptr<Outcome> result, Clock& time) -> Task<> {
            try {
                result->delivery = co_await task;
            } catch (const TextInjectionError& error) {
                result->error = error.code();
            }
            result->at = time.now();
        };
        drive(service.inject(text, mode, restore), outcome, clock);
        executor.drain();
        return outcome;
    }

    EventExecutor executor;
    ManualClock clock{executor};
    MockPasteboard pasteboard{clock};
    MockKeyInjector injector;
    MockApplications applications;
    MockAccessibility accessibility;
    bool smartSpacing = true;
    std::unique_ptr<TextInjectionService> owned = std::make_unique<TextInjectionService>(
        pasteboard, injector, applications, accessibility, clock, [this] { return smartSpacing; });
    TextInjectionService& service = *owned;
};

TEST_F(TextInjection, PastesAndGivesTheClipboardBackAfterTheRead) {
    const auto start = clock.now();
    const auto outcome = begin(dictated);
    EXPECT_EQ(outcome->delivery, Delivery::read);
    EXPECT_EQ(outcome->at, start) << "nothing may be waited for once the target has the text";
    EXPECT_EQ(pasteboard.offers.back()->text, dictated);
    EXPECT_EQ(pasteboard.text(), dictated) << "some applications read twice";
    clock.advance(60ms);
    pasteboard.offers.back()->read();
    clock.advance(60ms);
    EXPECT_EQ(pasteboard.text(), dictated);
    clock.advance(200ms);
    EXPECT_EQ(pasteboard.text(), u"before"_qs);
    EXPECT_EQ(clock.pending(), 0U);
    EXPECT_TRUE(service.lastUndelivered().isEmpty());
}

TEST_F(TextInjection, LeavesATextThatNobodyReadsOnTheClipboard) {
    injector.onChord = nullptr;
    const auto outcome = begin(dictated);
    clock.advance(499ms);
    EXPECT_FALSE(outcome->delivery);
    clock.advance(1ms);
    EXPECT_EQ(outcome->delivery, Delivery::unconfirmed);
    clock.advance(60s);
    EXPECT_EQ(pasteboard.text(), dictated);
    EXPECT_EQ(service.lastUndelivered(), dictated);

    readsOnPaste();
    EXPECT_EQ(await(service.insertAgain()), Delivery::read);
    EXPECT_EQ(injector.chords.size(), 2U);
    EXPECT_TRUE(service.lastUndelivered().isEmpty());
}

TEST_F(TextInjection, DoesNotTakeAClipboardManagersReadForTheTargets) {
    constexpr int64_t manager = 1;
    for (const auto& [early, late] : {std::pair(0ms, 100ms), std::pair(10ms, 450ms)}) {
        injector.onChord = nullptr;
        const auto outcome = begin(dictated);
        const auto offer = pasteboard.offers.back();
        clock.advance(early);
        offer->read(manager);
        clock.advance(late - early);
        offer->read(manager);
        EXPECT_FALSE(outcome->delivery);
        EXPECT_EQ(pasteboard.text(), dictated) << "the old clipboard would land";
        offer->read();
        executor.drain();
        EXPECT_EQ(outcome->delivery, Delivery::read);
        clock.advance(1s);
        EXPECT_EQ(pasteboard.text(), u"before"_qs);
    }
    const auto unread = begin(dictated);
    pasteboard.offers.back()->read(manager);
    clock.advance(600ms);
    EXPECT_EQ(unread->delivery, Delivery::unconfirmed);
    EXPECT_EQ(pasteboard.text(), dictated);
}

TEST_F(TextInjection, AReaderThatIsNotRevealedKeepsTheTextOnTheClipboardLonger) {
    injector.onChord = [this] { pasteboard.offers.back()->read(0); };
    EXPECT_EQ(begin(dictated)->delivery, Delivery::read);
    clock.advance(790ms);
    EXPECT_EQ(pasteboard.text(), dictated) << "the reader may have been a clipboard manager";
    clock.advance(200ms);
    EXPECT_EQ(pasteboard.text(), u"before"_qs);
}

TEST_F(TextInjection, RestoresNothingWhenTheClipboardWasEmptyOrRestoringIsOff) {
    begin(dictated, InjectionMode::paste, false);
    clock.advance(10s);
    EXPECT_EQ(pasteboard.text(), dictated);
    pasteboard.contents = {};
    begin(dictated);
    clock.advance(10s);
    EXPECT_EQ(pasteboard.text(), dictated);
    EXPECT_TRUE(pasteboard.restored.empty());
}

TEST_F(TextInjection, NeverOverwritesWhatSomeoneCopiedMeanwhile) {
    begin(dictated);
    pasteboard.copy(u"copied"_qs);
    clock.advance(10s);
    EXPECT_EQ(pasteboard.text(), u"copied"_qs);
}

TEST_F(TextInjection, ASecondTextRightAfterTheFirstStillRestoresTheOriginal) {
    begin(u"first"_qs);
    clock.advance(40ms);
    begin(u"second"_qs);
    clock.advance(50ms);
    EXPECT_EQ(pasteboard.text(), u"second"_qs) << "the first restore must not hit the second text";
    clock.advance(10s);
    EXPECT_EQ(pasteboard.text(), u"before"_qs);
    EXPECT_EQ(pasteboard.restored.size(), 1U);
}

TEST_F(TextInjection, TakesTurns) {
    injector.onChord = nullptr;
    const auto first = begin(u"first"_qs);
    const auto second = begin(u"second"_qs);
    EXPECT_EQ(pasteboard.offers.size(), 1U);
    pasteboard.offers.back()->read();
    readsOnPaste();
    executor.drain();
    clock.advance(1ms);
    EXPECT_EQ(first->delivery, Delivery::read);
    EXPECT_EQ(second->delivery, Delivery::read);
    EXPECT_EQ(pasteboard.offers.back()->text, u"second"_qs);
}

TEST_F(TextInjection, ASlowClipboardOwnerDelaysNoTextAndKeepsItsContentWhereItCan) {
    struct Case {
        const char* name;
        std::chrono::milliseconds readDelay;
        std::chrono::milliseconds spoken; ///< from the beginning of the reading to the text
        QString text;
        bool canType;
        std::chrono::milliseconds waited;
        Delivery delivery;
        QString left; ///< on the clipboard
    };
    const auto isLong = QString(300, u'x');
    const auto typed = Delivery::typed;
    const auto read = Delivery::read;
    const Case cases[] = {
        {"read while the user speaks", 3s, 4s, dictated, true, 0ms, read, u"theirs"_qs},
        {"read in the wait", 900ms, 500ms, dictated, true, 400ms, read, u"theirs"_qs},
        {"too slow for a short dictation", 3s, 500ms, dictated, true, 500ms, typed, u"theirs"_qs},
        {"slower than patience", 3s, 2s, dictated, true, 0ms, typed, u"theirs"_qs},
        {"hangs", 10s, 6s, dictated, true, 0ms, typed, u"theirs"_qs},
        {"hangs, and the text is long", 10s, 500ms, isLong, true, 500ms, read, isLong},
        {"hangs, and the text has a line end", 10s, 6s, u"a\nb"_qs, true, 0ms, read, u"a\nb"_qs},
        {"hangs, and keys cannot say it", 10s, 2s, dictated, false, 0ms, read, dictated},
    };
    pasteboard.tellsChanges = true;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        pasteboard.copy(u"theirs"_qs);
        pasteboard.readDelay = each.readDelay;
        pasteboard.readCount = 0;
        injector.canType = each.canType;
        auto preparing = service.prepareForInjection();
        executor.drain();
        clock.advance(each.spoken);
        const auto ready = clock.now();
        const auto outcome = begin(each.text);
        clock.advance(20s);
        EXPECT_EQ(outcome->delivery, each.delivery);
        EXPECT_EQ(outcome->at - ready, each.waited);
        EXPECT_EQ(pasteboard.text(), each.left);
        EXPECT_EQ(pasteboard.readCount, 1) << "an owner that is slow is not asked again";
        EXPECT_TRUE(preparing.isReady());
    }
    // Nothing was read ahead, because the recording began without a clipboard.
    const auto ready = clock.now();
    EXPECT_EQ(begin(dictated)->delivery, std::nullopt);
    clock.advance(200ms);
    EXPECT_EQ(pasteboard.text(), dictated);
    EXPECT_EQ(clock.now() - ready, 200ms);
}

TEST_F(TextInjection, WhatWasPreparedDoesNotCountOnceTheClipboardChanged) {
    pasteboard.tellsChanges = true;
    await(service.prepareForInjection());
    pasteboard.copy(u"newer"_qs);
    begin(dictated);
    clock.advance(1s);
    EXPECT_EQ(pasteboard.text(), u"newer"_qs);
}

TEST_F(TextInjection, RefusesSecureInputBeforeItTouchesAnything) {
    accessibility.secrecy = SecureInput::on;
    for (const auto mode : {InjectionMode::paste, InjectionMode::type}) {
        EXPECT_EQ(begin(dictated, mode)->error, TextInjectionError::Code::secureInput);
        EXPECT_EQ(service.lastUndelivered(), dictated);
    }
    EXPECT_TRUE(pasteboard.offers.empty());
    EXPECT_TRUE(injector.chords.empty());
    EXPECT_TRUE(injector.typed.empty());
}

TEST_F(TextInjection, WarnsOnceOfAProgramThatDoesNotTellItsPasswordFieldsBeforeItGetsText) {
    std::vector<QString> warned;
    service.onSecretsUnknown = [&](const QString& application) {
        EXPECT_TRUE(injector.chords.empty());
        warned.push_back(application);
    };
    accessibility.secrecy = SecureInput::unknown;
    const auto preparing = service.prepareForInjection();
    clock.advance(900ms);
    EXPECT_TRUE(warned.empty()) << "the program may still join the bus";
    clock.advance(200ms);
    EXPECT_EQ(warned, std::vector{u"Editor"_qs});
    EXPECT_EQ(begin(dictated)->delivery, Delivery::read);
    EXPECT_EQ(begin(dictated)->delivery, Delivery::read);
    EXPECT_EQ(warned.size(), 1U);
}

TEST_F(TextInjection, AProgramThatHangsGetsNoKeysThatMayReachAPasswordField) {
    accessibility.secrecy = SecureInput::unanswered;
    for (const auto mode : {InjectionMode::paste, InjectionMode::type})
        EXPECT_EQ(begin(dictated, mode)->delivery, Delivery::clipboardOnly);
    EXPECT_TRUE(injector.chords.empty());
    EXPECT_TRUE(injector.typed.empty());
    EXPECT_EQ(pasteboard.text(), dictated);
}

TEST_F(TextInjection, AFailingKeyboardIsReportedAndTheClipboardReturned) {
    const std::pair<InjectionStatus, TextInjectionError::Code> cases[] = {
        {InjectionStatus::noEventSource, TextInjectionError::Code::eventSource},
        {InjectionStatus::noKeyboardEvent, TextInjectionError::Code::keyboardEvent},
        {InjectionStatus::cancelled, TextInjectionError::Code::keyboardEvent}};
    for (const auto& [status, code] : cases) {
        injector.status = status;
        EXPECT_EQ(begin(dictated)->error, code);
        EXPECT_EQ(begin(dictated, InjectionMode::type)->error, code);
        EXPECT_EQ(pasteboard.text(), u"before"_qs);
    }
}

TEST_F(TextInjection, WithoutKeysTheTextWaitsOnTheClipboard) {
    injector.available = false;
    EXPECT_EQ(begin(dictated)->delivery, Delivery::clipboardOnly);
    clock.advance(10s);
    EXPECT_EQ(pasteboard.text(), dictated);
    EXPECT_EQ(service.lastUndelivered(), dictated);
    pasteboard.available = false;
    EXPECT_EQ(begin(dictated)->error, TextInjectionError::Code::eventSource);
}

TEST_F(TextInjection, TypesWithoutTheClipboardUnlessTheTextIsVeryLong) {
    EXPECT_EQ(begin(dictated, InjectionMode::type)->delivery, Delivery::typed);
    EXPECT_EQ(injector.typed, std::vector{dictated});
    EXPECT_TRUE(pasteboard.offers.empty());
    const QString megabyte(1'000'000, u'x');
    EXPECT_EQ(begin(megabyte, InjectionMode::type)->delivery, Delivery::read);
    EXPECT_EQ(pasteboard.offers.back()->text, megabyte);
}

TEST_F(TextInjection, WhatCannotBeTypedSafelyIsPasted) {
    // Typed, line ends and tabs would act.
    for (const auto& text : {u"one\ntwo"_qs, u"one\ttwo"_qs, dictated}) {
        injector.canType = text != dictated;
        EXPECT_EQ(begin(text, InjectionMode::type)->delivery, Delivery::read);
        EXPECT_EQ(pasteboard.offers.back()->text, text);
    }
    EXPECT_TRUE(injector.typed.empty());
    EXPECT_EQ(injector.chords.size(), 3U);
}

TEST_F(TextInjection, ALineEndAtTheEndDoesNotRunACommand) {
    applications.front =
        RunningApplication{.pid = 4711, .name = u"Terminal"_qs, .bundleIdentifier = {}, .isTerminal = true};
    begin(u"rm -r build\n\n"_qs);
    EXPECT_EQ(pasteboard.offers.back()->text, u"rm -r build"_qs);
    applications.front->isTerminal = false;
    begin(u"a paragraph\n"_qs);
    EXPECT_EQ(pasteboard.offers.back()->text, u"a paragraph\n"_qs);
    accessibility.isTerminal = true; // in a panel of an editor
    begin(u"rm -r build\n"_qs);
    EXPECT_EQ(pasteboard.offers.back()->text, u"rm -r build"_qs);
    EXPECT_EQ(injector.chords.back(), PasteChord::controlShiftV);
}

TEST_F(TextInjection, ATextThatGoesOnWhereTheLastEndedGetsTheBlankBetween) {
    const auto second = [&](const QString& text) {
        accessibility.beforeCaret = u"."_qs;
        begin(u"A decision."_qs);
        return [this, text] {
            begin(text);
            return pasteboard.offers.back()->text;
        };
    };
    EXPECT_EQ(second(u"Everyone"_qs)(), u" Everyone"_qs);
    EXPECT_EQ(second(u", said"_qs)(), u", said"_qs);
    const auto elsewhere = second(u"Everyone"_qs);
    for (const auto& found : {std::optional<QString>(), std::optional(QString()), std::optional(u"n"_qs)}) {
        accessibility.beforeCaret = found;
        EXPECT_EQ(elsewhere(), u"Everyone"_qs);
        second({});
    }
    const auto late = second(u"Everyone"_qs);
    clock.advance(121s);
    EXPECT_EQ(late(), u"Everyone"_qs);
    const auto otherWindow = second(u"Everyone"_qs);
    applications.front->window = 2;
    EXPECT_EQ(otherWindow(), u"Everyone"_qs);
    applications.front->isTerminal = true;
    EXPECT_EQ(second(u"Everyone"_qs)(), u"Everyone"_qs);
    applications.front->isTerminal = false;
    smartSpacing = false;
    EXPECT_EQ(second(u"Everyone"_qs)(), u"Everyone"_qs);
}

TEST_F(TextInjection, AnEmptyTextTouchesNothing) {
    for (const auto& text : {QString(), u"\x07\x1b"_qs})
        EXPECT_TRUE(begin(text)->delivery);
    EXPECT_TRUE(pasteboard.offers.empty());
    EXPECT_TRUE(injector.chords.empty());
}

TEST_F(TextInjection, TellsATextFieldByRoleElseByWhatItCanDo) {
    const std::tuple<const char*, bool, bool, bool> cases[] = {
        {"AXTextField", false, false, true}, {"AXTextArea", false, false, true},  {"AXComboBox", false, false, true},
        {"AXButton", true, true, false},     {"AXStaticText", true, true, false}, {"AXWebArea", false, false, false},
        {"AXWebArea", true, false, true},    {"AXGroup", false, true, true}};
    for (const auto& [role, isValueSettable, hasNumberOfCharacters, expected] : cases) {
        accessibility.element = FocusedElement{.role = QString::fromLatin1(role),
                                               .isValueSettable = isValueSettable,
                                               .hasNumberOfCharacters = hasNumberOfCharacters};
        EXPECT_EQ(await(service.hasFocusedTextField()), expected) << role;
    }
    accessibility.element = std::nullopt;
    EXPECT_TRUE(await(service.hasFocusedTextField()));
}

} // namespace
} // namespace quillo::test
