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

class AtSpiTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_session = std::make_unique<test::XSession>(test::XSession::Bus::session);
        s_accessibility = createAtSpiAccessibility([] { return s_keyboardIsGrabbed; });
        // Programs started before the switch is on stay out of reach.
        ASSERT_TRUE(waitUntil([] {
            return s_session
                ->run(QStringLiteral("gdbus"),
                      {QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--dest"),
                       QStringLiteral("org.a11y.Bus"), QStringLiteral("--object-path"), QStringLiteral("/org/a11y/bus"),
                       QStringLiteral("--method"), QStringLiteral("org.freedesktop.DBus.Properties.Get"),
                       QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled")})
                .contains("true");
        }));
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

    static std::unique_ptr<test::XSession> s_session;
    static std::unique_ptr<Accessibility> s_accessibility;
    static bool s_keyboardIsGrabbed;
};

std::unique_ptr<test::XSession> AtSpiTest::s_session;
std::unique_ptr<Accessibility> AtSpiTest::s_accessibility;
bool AtSpiTest::s_keyboardIsGrabbed = false;

TEST_F(AtSpiTest, TellsWhatHasTheFocus) {
    struct Case {
        QStringList arguments;
        const char* role;
        bool isPassword;
        bool isSettable;
        bool hasCharacters;
    };
    const Case cases[] = {
        {{}, "AXTextArea", false, true, true},
        {{QStringLiteral("--line")}, "AXTextField", false, true, true},
        {{QStringLiteral("--password")}, "AXTextField", true, true, true},
        {{QStringLiteral("--no-field")}, "AXButton", false, false, false},
    };
    for (const Case& expected : cases) {
        const test::TextFieldProgram program(*s_session, expected.arguments);
        const auto element = focusedElement();
        ASSERT_TRUE(element) << expected.role;
        EXPECT_EQ(element->role.toStdString(), expected.role);
        EXPECT_EQ(element->isPassword, expected.isPassword) << expected.role;
        EXPECT_EQ(element->isValueSettable, expected.isSettable) << expected.role;
        EXPECT_EQ(element->hasNumberOfCharacters, expected.hasCharacters) << expected.role;
        EXPECT_EQ(await(s_accessibility->isSecureInputEnabled(milliseconds(300))), expected.isPassword);
    }
    EXPECT_TRUE(waitUntil([] { return !await(s_accessibility->focusedElement(milliseconds(300))); }))
        << "the program has gone";
}

TEST_F(AtSpiTest, AnotherToolkitsEntryIsATextField) {
    const auto entry =
        s_session->launch(QStringLiteral("zenity"), {QStringLiteral("--entry"), QStringLiteral("--title=Entry")});
    s_session->waitForActiveWindow(QStringLiteral("Entry"));
    const auto element = focusedElement();
    ASSERT_TRUE(element);
    EXPECT_EQ(element->role, QStringLiteral("AXTextField"));
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

TEST_F(AtSpiTest, AGrabbedKeyboardIsSecureInput) {
    s_keyboardIsGrabbed = true;
    EXPECT_TRUE(await(s_accessibility->isSecureInputEnabled(milliseconds(100))));
    s_keyboardIsGrabbed = false;
    EXPECT_FALSE(await(s_accessibility->isSecureInputEnabled(milliseconds(100))));
}

TEST(AtSpiWithoutBus, CannotTell) {
    const auto accessibility = createAtSpiAccessibility();
    EXPECT_FALSE(await(accessibility->focusedElement(milliseconds(50))));
    EXPECT_FALSE(await(accessibility->isSecureInputEnabled(milliseconds(50))));
}

} // namespace
} // namespace quillo
