// Dictations in Wayland sessions: started by the command line or a key of the compositor, ending on the clipboard.

#include "DesktopSession.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Support/WaylandCompositor.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString spoken = u"Grüße aus Zürich – “naïve” 日本語 привет 😀👩‍👩‍👧 €5."_qs;

class WaylandDictationTest : public testing::Test {
protected:
    /// Moves the session, which is an X11 one so far, into a compositor.
    void enter(WaylandCompositor::Options options) {
        compositor = std::make_unique<WaylandCompositor>(options);
        auto& environment = session.environment();
        environment.insert(u"XDG_SESSION_TYPE"_qs, u"wayland"_qs);
        environment.insert(u"WAYLAND_DISPLAY"_qs, compositor->socket());
        environment.insert(u"SWAYSOCK"_qs, compositor->controlSocket());
        if (compositor->display().isEmpty())
            environment.remove(u"DISPLAY"_qs);
        else
            environment.insert(u"DISPLAY"_qs, compositor->display());
        if (options.kind == WaylandCompositor::Kind::sway)
            environment.insert(u"XDG_CURRENT_DESKTOP"_qs, u"sway"_qs);
    }

    void start() {
        session.recognise(spoken);
        session.startQuillo({{u"primaryLanguage"_qs, u"en"_qs}});
    }

    /// Speaks between `begin` and `end` and waits for the outcome.
    void dictate(const std::function<void()>& begin, const std::function<void()>& end) {
        const auto before = session.lastRun().value(u"id"_qs);
        begin();
        ASSERT_TRUE(session.waitForStatus(u"recording"_qs));
        session.play(session.synthesize(u"anything at all"_qs));
        end();
        ASSERT_TRUE(waitUntil([&] { return session.lastRun().value(u"id"_qs) != before; }, 30s));
        ASSERT_TRUE(session.waitForStatus(u"idle"_qs));
        EXPECT_EQ(session.lastRun().value(u"delivery"_qs).toString(), u"clipboardOnly"_qs);
        EXPECT_EQ(session.lastRun().value(u"text"_qs).toString(), spoken);
    }

    std::function<void()> command(const QString& name) {
        return [this, name] {
            int code = -1;
            session.quillo({name}, &code);
            EXPECT_EQ(code, 0) << name.toStdString();
        };
    }

    QString paste(const QStringList& arguments = {}) {
        return session.run(u"wl-paste"_qs, QStringList{u"--no-newline"_qs} + arguments);
    }

    void copy(const QString& text) { session.run(u"wl-copy"_qs, {text}); }

    /// The lines of "quillo setup-key" under `heading`, without their indentation.
    QStringList guideLines(const QString& heading) {
        QStringList lines;
        const auto guide = session.quillo({u"setup-key"_qs}).split(u'\n');
        for (auto line = guide.indexOf(heading) + 1; line > 0 && guide.value(line).startsWith(u"  "); ++line)
            lines << guide.at(line).trimmed();
        return lines;
    }

    /// Hands `lines` to the compositor as its configuration file would.
    void configure(const QStringList& lines) {
        ASSERT_FALSE(lines.isEmpty());
        for (const auto& line : lines) {
            int code = -1;
            const auto answer = session.run(u"swaymsg"_qs, {line}, &code);
            ASSERT_EQ(code, 0) << line.toStdString() << ": " << answer.toStdString();
        }
    }

    std::unique_ptr<WaylandCompositor> compositor; ///< outlives the session's programs
    DesktopSession session;
};

TEST_F(WaylandDictationTest, CommandsDictateOntoTheClipboard) {
    enter({.xwayland = true});
    copy(u"from before"_qs);
    start();
    EXPECT_FALSE(session.status().value(u"hotkeysArmed"_qs).toBool());
    dictate(command(u"start"_qs), command(u"stop"_qs));
    EXPECT_EQ(paste(), spoken);
    EXPECT_EQ(paste({u"--primary"_qs}), spoken);

    copy(u"the user's own"_qs);
    EXPECT_EQ(paste(), u"the user's own"_qs);
    dictate(command(u"toggle"_qs), command(u"toggle"_qs));
    EXPECT_EQ(paste(), spoken);
}

// The compositor may run as another user, who cannot reach the session's bus: what it runs is written down instead.
TEST_F(WaylandDictationTest, TheKeysOfTheGuideRunTheCommands) {
    enter({});
    const auto program = compositor->path(u"quillo"_qs);
    writeFile(program, "#!/bin/sh\necho \"$1\" >>\"$(dirname \"$0\")/commands\"\n", QFile::Permissions(0x7755));
    const auto commands = [this] { return contentOf(compositor->path(u"commands"_qs)); };
    const auto bind = [&](const QString& heading) {
        auto lines = guideLines(heading);
        for (auto& line : lines) {
            EXPECT_TRUE(line.contains(u"/quillo "_qs)) << line.toStdString();
            line.replace(QRegularExpression(u"exec \\S+/quillo "_qs), u"exec %1 "_qs.arg(program));
        }
        configure(lines);
    };
    bind(u"Hold to talk:"_qs);
    session.shell(u"wtype -P F9 -s 300 -P Shift_L -s 100 -p F9 -p Shift_L"_qs); // Sway forgets the release of F9
    EXPECT_TRUE(waitUntil([&] { return commands() == "start\nstop\n"; })) << commands().toStdString();
    QFile::remove(compositor->path(u"commands"_qs));
    session.shell(u"wtype -P F9 -s 900 -p F9"_qs);
    EXPECT_TRUE(waitUntil([&] { return commands() == "start\nstop\n"; })) << commands().toStdString();

    configure({u"unbindsym F9"_qs, u"unbindsym --release --locked F9"_qs});
    bind(u"One press starts, the next stops:"_qs);
    for (const auto* expected : {"start\nstop\ntoggle\n", "start\nstop\ntoggle\ntoggle\n"}) {
        session.shell(u"wtype -k F9"_qs);
        EXPECT_TRUE(waitUntil([&] { return commands() == expected; })) << commands().toStdString();
    }
}

TEST_F(WaylandDictationTest, WithoutAnXServerItWorksToo) {
    enter({});
    start();
    dictate(command(u"start"_qs), command(u"stop"_qs));
    EXPECT_EQ(paste(), spoken);
}

TEST_F(WaylandDictationTest, WithoutAnyClipboardItSaysSo) {
    enter({.kind = WaylandCompositor::Kind::weston});
    start();
    command(u"start"_qs)();
    EXPECT_TRUE(waitUntil([&] { return session.status("message").contains(u"Xwayland"_qs); }, 10s))
        << session.status("message").toStdString();
    EXPECT_TRUE(session.quillo({u"setup-key"_qs}).contains(u"quillo toggle"_qs));
}

} // namespace
