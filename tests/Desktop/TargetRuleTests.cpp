// Where the text goes when the active window changes during a dictation, under a real window manager.

#include "KeyStorm.h"
#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

class TargetRules : public testing::Test {
protected:
    static void SetUpTestSuite() { s_desktop = std::make_unique<ScriptedDesktop>(); }
    static void TearDownTestSuite() { s_desktop.reset(); }

    void SetUp() override {
        first = openQtField(session);
        second = openGtkField(session);
        activate(session, first);
    }
    void TearDown() override {
        session.end(*first.process);
        session.end(*second.process);
        if (HasFailure()) {
            session.keepFolder();
            std::cerr << "logs: " << session.folder().toStdString() << "\n";
        }
    }

    /// Speaks, and runs `meanwhile` while the key is held.
    QJsonObject dictate(const QString& text, const std::function<void()>& meanwhile) {
        desktop.say(text);
        const auto before = desktop.lastRunId();
        desktop.press();
        EXPECT_TRUE(session.waitForStatus(QStringLiteral("recording")));
        desktop.speak();
        meanwhile();
        desktop.release();
        return desktop.awaitRun(before);
    }

    static inline std::unique_ptr<ScriptedDesktop> s_desktop;
    ScriptedDesktop& desktop = *s_desktop;
    DesktopSession& session = desktop.session;
    TargetWindow first;
    TargetWindow second;
};

TEST_F(TargetRules, TheWindowThatIsInFrontAtTheEndGetsTheText) {
    const auto run = dictate(QStringLiteral("For the second."), [&] { activate(session, second); });
    EXPECT_EQ(run.value(QStringLiteral("delivery")).toString(), QStringLiteral("read"));
    EXPECT_TRUE(waitUntil([&] { return second.content() == "For the second."; }, 5s));
    EXPECT_EQ(first.content(), QByteArray());
    EXPECT_EQ(desktop.logged(QStringLiteral("🎯 User switched apps during recording")), 1);
}

TEST_F(TargetRules, AWindowThatIsGoneAtTheEndLeavesTheTextToTheOneInFront) {
    dictate(QStringLiteral("Whoever is left."), [&] {
        session.end(*first.process);
        activate(session, second);
    });
    EXPECT_TRUE(waitUntil([&] { return second.content() == "Whoever is left."; }, 5s));
}

/// Our only window with a focus is the one that asks for the language.
TEST(OurOwnWindow, GivesWayToTheOneAtTheStartAndComesBack) {
    ScriptedDesktop desktop({.language = {}});
    auto& session = desktop.session;
    desktop.press();
    TargetWindow ourselves{.name = QStringLiteral("the language picker"), .id = {}, .content = {}};
    const auto active = [&] {
        return session.run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}).trimmed();
    };
    const auto activeProcess = [&] {
        return session
            .run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowpid")})
            .trimmed();
    };
    const auto pid = QString::number(desktop.quillo().processId());
    ASSERT_TRUE(waitUntil([&] { return activeProcess() == pid; }, 20s)) << "nobody asked for the language";
    ourselves.id = active();
    desktop.release();
    desktop.set("primaryLanguage", QStringLiteral("en"));

    const auto field = openQtField(session);
    activate(session, field);
    desktop.say(QStringLiteral("Past ourselves."));
    const auto before = desktop.lastRunId();
    desktop.press();
    EXPECT_TRUE(session.waitForStatus(QStringLiteral("recording")));
    desktop.speak();
    activate(session, ourselves);
    desktop.release();
    EXPECT_EQ(desktop.awaitRun(before).value(QStringLiteral("delivery")).toString(), QStringLiteral("read"));
    EXPECT_TRUE(waitUntil([&] { return field.content() == "Past ourselves."; }, 5s)) << field.content().toStdString();
    EXPECT_EQ(desktop.logged(QStringLiteral("🎯 Frontmost is Quillo — falling back to start-captured app: ")), 1);
    EXPECT_TRUE(waitUntil([&] { return active() == ourselves.id; }, 5s)) << "our window was not brought back";
}

} // namespace
