// Where the text goes when the active window changes during a dictation, under a real window manager.

#include "KeyStorm.h"
#include "ScriptedDesktop.h"
#include "Support/Async.h"
#include "Targets/TargetWindow.h"

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

class TargetRules : public OnOneDesktop {
protected:
    void SetUp() override {
        first = openQtField(session);
        second = openGtkField(session);
        activate(session, first);
    }
    void TearDown() override {
        session.end(*first.process);
        session.end(*second.process);
        OnOneDesktop::TearDown();
    }

    TargetWindow first;
    TargetWindow second;
};

TEST_F(TargetRules, TheWindowThatIsInFrontAtTheEndGetsTheText) {
    const auto run = desktop.dictate(u"For the second."_qs, [&] { activate(session, second); });
    EXPECT_EQ(run.value(u"delivery"_qs).toString(), u"read"_qs);
    EXPECT_TRUE(waitUntil([&] { return second.content() == "For the second."; }, 5s));
    EXPECT_EQ(first.content(), QByteArray());
    EXPECT_EQ(desktop.logged(u"🎯 User switched apps during recording"_qs), 1);
}

TEST_F(TargetRules, AWindowThatIsGoneAtTheEndLeavesTheTextToTheOneInFront) {
    desktop.dictate(u"Whoever is left."_qs, [&] {
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
    TargetWindow ourselves{.name = u"the language picker"_qs, .id = {}, .content = {}};
    const auto active = [&] { return session.shell(u"xdotool getactivewindow"_qs).trimmed(); };
    const auto activeProcess = [&] { return session.shell(u"xdotool getactivewindow getwindowpid"_qs).trimmed(); };
    const auto pid = QString::number(desktop.quillo().processId());
    ASSERT_TRUE(waitUntil([&] { return activeProcess() == pid; }, 20s)) << "nobody asked for the language";
    ourselves.id = active();
    desktop.release();
    desktop.set("primaryLanguage", u"en"_qs);

    const auto field = openQtField(session);
    activate(session, field);
    const auto run = desktop.dictate(u"Past ourselves."_qs, [&] { activate(session, ourselves); });
    EXPECT_EQ(run.value(u"delivery"_qs).toString(), u"read"_qs);
    EXPECT_TRUE(waitUntil([&] { return field.content() == "Past ourselves."; }, 5s)) << field.content().toStdString();
    EXPECT_EQ(desktop.logged(u"🎯 Frontmost is Quillo — falling back to start-captured app: "_qs), 1);
    EXPECT_TRUE(waitUntil([&] { return active() == ourselves.id; }, 5s)) << "our window was not brought back";
}

} // namespace
