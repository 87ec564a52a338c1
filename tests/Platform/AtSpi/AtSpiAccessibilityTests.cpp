#include "Platform/Linux/AtSpi/AtSpiAccessibility.h"
#include "Platform/Linux/AtSpi/AtSpiRoles.h"
#include "Support/Async.h"
#include "Support/XSession.h"

#include <gmock/gmock.h>

#include <csignal>

namespace quillo {
namespace {

using std::chrono::milliseconds;
using test::await;
using test::waitUntil;

/// Gets or sets a property of the desktop's accessibility switch.
QByteArray property(test::XSession& session, const QString& method, const QStringList& arguments) {
    return session.run(u"gdbus"_qs,
                       QStringList{u"call"_qs, u"--session"_qs, u"--dest"_qs, u"org.a11y.Bus"_qs, u"--object-path"_qs,
                                   u"/org/a11y/bus"_qs, u"--method"_qs, u"org.freedesktop.DBus.Properties."_qs + method,
                                   u"org.a11y.Status"_qs} +
                           arguments);
}

bool isSwitchedOn(test::XSession& session) { return property(session, u"Get"_qs, {u"IsEnabled"_qs}).contains("true"); }

class AtSpiTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_session = std::make_unique<test::XSession>(test::XSession::Bus::session);
        s_accessibility = createAtSpiAccessibility([] { return s_keyboardIsGrabbed; });
        // Programs started before the switch is on stay out of reach.
        ASSERT_TRUE(waitUntil([] { return isSwitchedOn(*s_session); }));
    }
    static void TearDownTestSuite() {
        s_accessibility.reset();
        s_session.reset();
    }

    /// Asks until the answer is there: a program registers itself some time after its window has the focus.
    static std::optional<FocusedElement> focusedElement() {
        std::optional<FocusedElement> element;
        (void)waitUntil(
            [&] { return (element = await(s_accessibility->focusedElement(milliseconds(300)))).has_value(); });
        return element;
    }

    static inline std::unique_ptr<test::XSession> s_session;
    static inline std::unique_ptr<Accessibility> s_accessibility;
    static inline bool s_keyboardIsGrabbed = false;
};

TEST_F(AtSpiTest, TellsWhatHasTheFocus) {
    const std::pair<const char*, const char*> cases[] = {{"", "AXTextArea"},
                                                         {"--line", "AXTextField"},
                                                         {"--password", "AXTextField"},
                                                         {"--no-field", "AXButton"},
                                                         {"--terminal", "AXTextArea"}};
    for (const auto& [option, role] : cases) {
        const test::TextFieldProgram program(*s_session, QString::fromLatin1(option).split(u' ', Qt::SkipEmptyParts));
        const auto element = focusedElement();
        ASSERT_TRUE(element) << option;
        EXPECT_EQ(element->role.toStdString(), role) << option;
        const bool isPassword = QByteArray(option) == "--password";
        const bool isTerminal = QByteArray(option) == "--terminal";
        const bool isText = QByteArray(option) != "--no-field" && !isTerminal;
        EXPECT_EQ(element->isPassword, isPassword) << option;
        EXPECT_EQ(element->isValueSettable, isText) << option;
        EXPECT_EQ(element->hasNumberOfCharacters, isText) << option;
        EXPECT_EQ(await(s_accessibility->secureInput(program.pid(), milliseconds(1000))),
                  isPassword ? SecureInput::on : SecureInput::off);
        EXPECT_EQ(s_accessibility->foundTerminal(program.pid()), isTerminal) << option;
        EXPECT_FALSE(s_accessibility->foundTerminal(1)) << "of another program";
    }
    EXPECT_TRUE(waitUntil([] { return !await(s_accessibility->focusedElement(milliseconds(300))); }))
        << "the program has gone";
}

TEST_F(AtSpiTest, AnotherToolkitsEntryIsATextField) {
    const auto entry = s_session->launch(u"zenity"_qs, {u"--entry"_qs, u"--title=Entry"_qs});
    s_session->waitForActiveWindow(u"Entry"_qs);
    const auto element = focusedElement();
    ASSERT_TRUE(element);
    EXPECT_EQ(element->role, u"AXTextField"_qs);
    entry->kill();
    entry->waitForFinished();
}

TEST_F(AtSpiTest, AHungProgramCostsTheDeadline) {
    const test::TextFieldProgram program(*s_session);
    ASSERT_TRUE(focusedElement());
    ::kill(static_cast<pid_t>(program.pid()), SIGSTOP);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(await(s_accessibility->focusedElement(milliseconds(200))));
    EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(1000));
    ::kill(static_cast<pid_t>(program.pid()), SIGCONT);
    EXPECT_TRUE(focusedElement());
}

TEST_F(AtSpiTest, FindsFocusThatCameBeforeAnyoneListened) {
    const test::TextFieldProgram qt(*s_session, {u"--password"_qs});
    ASSERT_TRUE(focusedElement());
    const auto late = createAtSpiAccessibility();
    SecureInput answer = SecureInput::unknown;
    EXPECT_TRUE(waitUntil([&] {
        answer = await(late->secureInput(qt.pid(), milliseconds(1000)));
        return answer != SecureInput::unknown;
    })) << "no event will ever tell";
    EXPECT_EQ(answer, SecureInput::on);
    EXPECT_EQ(await(late->secureInput(0, milliseconds(1000))), SecureInput::on);
    EXPECT_EQ(await(late->secureInput(1, milliseconds(1000))), SecureInput::unknown) << "another program is in front";
    // What is settled holds while the program is too busy to say it again.
    ASSERT_EQ(await(late->secureInput(qt.pid(), milliseconds(1000))), SecureInput::on);
    ::kill(static_cast<pid_t>(qt.pid()), SIGSTOP);
    EXPECT_EQ(await(late->secureInput(qt.pid(), milliseconds(1000))), SecureInput::on);
    const auto later = createAtSpiAccessibility();
    EXPECT_TRUE(
        waitUntil([&] { return await(later->secureInput(qt.pid(), milliseconds(300))) == SecureInput::unanswered; }));
    ::kill(static_cast<pid_t>(qt.pid()), SIGCONT);
}

TEST_F(AtSpiTest, TellsWhatIsBeforeTheCaretOfAnEditorFoundWithoutAnEvent) {
    const test::TextFieldProgram editor(*s_session);
    ASSERT_TRUE(focusedElement());
    const auto late = createAtSpiAccessibility();
    EXPECT_TRUE(
        waitUntil([&] { return await(late->secureInput(editor.pid(), milliseconds(1000))) == SecureInput::off; }));
    EXPECT_EQ(await(late->characterBeforeCaret(milliseconds(1000))), QString());
}

TEST_F(AtSpiTest, LeavesTheDesktopsSwitchAsItFoundIt) {
    struct Case {
        const char* name;
        bool wasOn;
        bool isOurs; ///< as an earlier run remembered
        bool readerStarts;
        bool isOnAfter;
    };
    for (const auto& test : {Case{"off", false, false, false, false}, Case{"on", true, false, false, true},
                             Case{"left on by a killed run", true, true, false, false},
                             Case{"a screen reader was started", false, false, true, true}}) {
        const auto set = [](const char* name, bool on) {
            property(*s_session, u"Set"_qs, {QString::fromLatin1(name), on ? u"<true>"_qs : u"<false>"_qs});
        };
        set("IsEnabled", test.wasOn);
        bool isOurs = test.isOurs;
        int stored = 0;
        auto accessibility =
            createAtSpiAccessibility({}, {[&] { return isOurs; }, [&](bool ours) { isOurs = ours, ++stored; }});
        ASSERT_TRUE(waitUntil([&] { return stored == 1 && isSwitchedOn(*s_session); })) << test.name;
        set("ScreenReaderEnabled", test.readerStarts);
        accessibility.reset();
        EXPECT_EQ(isSwitchedOn(*s_session), test.isOnAfter) << test.name;
        EXPECT_FALSE(isOurs) << test.name;
    }
    property(*s_session, u"Set"_qs, {u"ScreenReaderEnabled"_qs, u"<false>"_qs});
    property(*s_session, u"Set"_qs, {u"IsEnabled"_qs, u"<true>"_qs});
}

TEST_F(AtSpiTest, AGrabbedKeyboardIsSecureInput) {
    s_keyboardIsGrabbed = true;
    EXPECT_EQ(await(s_accessibility->secureInput(0, milliseconds(100))), SecureInput::on);
    s_keyboardIsGrabbed = false;
    EXPECT_NE(await(s_accessibility->secureInput(0, milliseconds(100))), SecureInput::on);
}

TEST(AtSpiWithoutBus, CannotTell) {
    const auto accessibility = createAtSpiAccessibility();
    EXPECT_FALSE(await(accessibility->focusedElement(milliseconds(50))));
    EXPECT_EQ(await(accessibility->secureInput(0, milliseconds(50))), SecureInput::unknown);
}

} // namespace
} // namespace quillo
