#include "Platform/Linux/X11/DesktopEntries.h"
#include "Platform/Linux/X11/KeyboardGrabProbe.h"
#include "Platform/Linux/X11/X11Applications.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Support/XSession.h"

#include <gmock/gmock.h>

namespace quillo {
namespace {

using test::waitUntil;

TEST(X11Applications, FollowsTheActiveWindowAndActivates) {
    test::XSession session;
    const auto applications = createX11Applications();
    ASSERT_TRUE(applications);
    EXPECT_EQ(applications->frontmost(), std::nullopt);
    const test::TextFieldProgram first(session);
    const auto one = applications->frontmost();
    ASSERT_TRUE(one);
    EXPECT_EQ(one->pid, first.pid());
    EXPECT_EQ(one->window, first.window());
    EXPECT_EQ(one->name, u"quillo-text-field"_qs);
    EXPECT_FALSE(one->isTerminal);
    {
        const test::TextFieldProgram second(session);
        EXPECT_EQ(applications->frontmost()->pid, second.pid());
        EXPECT_TRUE(applications->activate(*one));
        EXPECT_TRUE(waitUntil([&] {
            const auto now = applications->frontmost();
            return now && now->pid == first.pid();
        }));
    }
    auto moved = *one;
    moved.window = 0;
    EXPECT_TRUE(applications->activate(moved)) << "found again by its process";
    moved.pid = 999999999;
    EXPECT_FALSE(applications->activate(moved));

    const auto terminal = session.launch(u"xterm"_qs, {u"-T"_qs, u"Terminal"_qs});
    session.waitForActiveWindow(u"Terminal"_qs);
    EXPECT_TRUE(applications->frontmost()->isTerminal);
    terminal->kill();
    terminal->waitForFinished();
}

TEST(X11KeyboardGrab, IsToldWithoutTouchingTheFocus) {
    const test::XSession session;
    InjectionGuard guard;
    EXPECT_FALSE(x11KeyboardIsGrabbed(guard));
    auto other = std::make_unique<test::PhysicalKeyboard>(qEnvironmentVariable("DISPLAY"));
    ASSERT_TRUE(other->grabKeyboard());
    EXPECT_TRUE(x11KeyboardIsGrabbed(guard));
    guard.setOwnGrabActive(true);
    EXPECT_FALSE(x11KeyboardIsGrabbed(guard));
    other.reset();
    guard.setOwnGrabActive(false);
    EXPECT_TRUE(waitUntil([&] { return !x11KeyboardIsGrabbed(guard); }));
}

TEST(DesktopEntries, AreFoundByClassIdAndProgram) {
    const QTemporaryDir folder;
    const auto write = [&](const char* name, const QByteArray& text) {
        test::writeFile(folder.filePath(u"applications/"_qs + QLatin1String(name)),
                        "[Desktop Entry]\nType=Application\n" + text);
    };
    write("editor.desktop", "Name=Editor\nName[de]=Texteditor\nStartupWMClass=Gedit-Like\nExec=env A=b /usr/bin/ed-it "
                            "%U\n[Other]\nName=No\n");
    write("sub/term.desktop", "Name=Console\nExec=\"/usr/bin/con sole\"\nCategories=System;TerminalEmulator;\n");
    const auto entries = DesktopEntries::read({folder.path()}, u"de_DE"_qs);
    for (const auto& [windowClass, program] :
         {std::pair{u"gedit-like"_qs, QString()}, {u"Editor"_qs, QString()}, {QString(), u"ed-it"_qs}}) {
        const auto entry = entries.find(windowClass, program);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->name, u"Texteditor"_qs);
        EXPECT_EQ(entry->id, u"editor"_qs);
    }
    EXPECT_TRUE(entries.find(u"sub-term"_qs, {})->isTerminal);
    EXPECT_FALSE(entries.find(u"nothing"_qs, u"nobody"_qs));
}

} // namespace
} // namespace quillo
