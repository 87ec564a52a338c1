// Dictations in Wayland sessions: started by the command line or a key of the compositor, ending on the clipboard.

#include "DesktopSession.h"
#include "Support/Async.h"
#include "Support/WaylandCompositor.h"

#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <iostream>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString spoken =
    QStringLiteral("Grüße aus Zürich – “naïve” 日本語 привет 😀👩‍👩‍👧 €5.");

class WaylandDictationTest : public testing::Test {
protected:
    void TearDown() override {
        if (m_quillo)
            session.end(*m_quillo);
        if (HasFailure()) {
            session.keepFolder();
            std::cerr << "logs: " << session.folder().toStdString() << "\n";
        }
    }

    /// Moves the session, which is an X11 one so far, into a compositor.
    void enter(WaylandCompositor::Options options) {
        compositor = std::make_unique<WaylandCompositor>(options);
        auto& environment = session.environment();
        environment.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("wayland"));
        environment.insert(QStringLiteral("WAYLAND_DISPLAY"), compositor->socket());
        environment.insert(QStringLiteral("SWAYSOCK"), compositor->controlSocket());
        if (compositor->display().isEmpty())
            environment.remove(QStringLiteral("DISPLAY"));
        else
            environment.insert(QStringLiteral("DISPLAY"), compositor->display());
        if (options.kind == WaylandCompositor::Kind::sway)
            environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QStringLiteral("sway"));
    }

    void start() {
        QFile script(session.path(QStringLiteral("script.json")));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(R"({"events": [{"at": 0.3, "final": ")" + spoken.toUtf8() + R"("}]})");
        script.close();
        session.environment().insert(QStringLiteral("QUILLO_SERVER_OPTIONS"),
                                     QStringLiteral("--recogniser scripted --script %1").arg(script.fileName()));
        m_quillo = &session.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")}});
    }

    /// Speaks between `begin` and `end` and waits for the outcome.
    void dictate(const std::function<void()>& begin, const std::function<void()>& end) {
        const auto before = lastRun().value(QStringLiteral("id"));
        begin();
        ASSERT_TRUE(session.waitForStatus(QStringLiteral("recording")));
        session.play(session.synthesize(QStringLiteral("anything at all")));
        end();
        ASSERT_TRUE(waitUntil([&] { return lastRun().value(QStringLiteral("id")) != before; }, 30s));
        ASSERT_TRUE(session.waitForStatus(QStringLiteral("idle")));
        EXPECT_EQ(lastRun().value(QStringLiteral("delivery")).toString(), QStringLiteral("clipboardOnly"));
        EXPECT_EQ(lastRun().value(QStringLiteral("text")).toString(), spoken);
    }

    std::function<void()> command(const QString& name) {
        return [this, name] {
            int code = -1;
            session.quillo({name}, &code);
            EXPECT_EQ(code, 0) << name.toStdString();
        };
    }

    QJsonObject lastRun() { return session.status().value(QStringLiteral("lastRun")).toObject(); }

    QString paste(const QStringList& arguments = {}) {
        return session.run(QStringLiteral("wl-paste"), QStringList{QStringLiteral("--no-newline")} + arguments);
    }

    void copy(const QString& text) { session.run(QStringLiteral("wl-copy"), {text}); }

    /// The lines of "quillo setup-key" under `heading`, without their indentation.
    QStringList guideLines(const QString& heading) {
        QStringList lines;
        const auto guide = session.quillo({QStringLiteral("setup-key")}).split(u'\n');
        for (auto line = guide.indexOf(heading) + 1; line > 0 && guide.value(line).startsWith(u"  "); ++line)
            lines << guide.at(line).trimmed();
        return lines;
    }

    /// Hands `lines` to the compositor as its configuration file would.
    void configure(const QStringList& lines) {
        ASSERT_FALSE(lines.isEmpty());
        for (const auto& line : lines) {
            int code = -1;
            const auto answer = session.run(QStringLiteral("swaymsg"), {line}, &code);
            ASSERT_EQ(code, 0) << line.toStdString() << ": " << answer.toStdString();
        }
    }

    DesktopSession session;
    std::unique_ptr<WaylandCompositor> compositor;
    QProcess* m_quillo = nullptr;
};

TEST_F(WaylandDictationTest, CommandsDictateOntoTheClipboard) {
    enter({.xwayland = true});
    copy(QStringLiteral("from before"));
    start();
    EXPECT_FALSE(session.status().value(QStringLiteral("hotkeysArmed")).toBool());
    dictate(command(QStringLiteral("start")), command(QStringLiteral("stop")));
    EXPECT_EQ(paste(), spoken);
    EXPECT_EQ(paste({QStringLiteral("--primary")}), spoken);

    copy(QStringLiteral("the user's own"));
    EXPECT_EQ(paste(), QStringLiteral("the user's own"));
    dictate(command(QStringLiteral("toggle")), command(QStringLiteral("toggle")));
    EXPECT_EQ(paste(), spoken);
}

// The compositor may run as another user, who cannot reach the session's bus: what it runs is written down instead.
TEST_F(WaylandDictationTest, TheKeysOfTheGuideRunTheCommands) {
    enter({});
    const auto program = compositor->path(QStringLiteral("quillo"));
    QFile relay(program);
    ASSERT_TRUE(relay.open(QIODevice::WriteOnly));
    relay.write("#!/bin/sh\necho \"$1\" >>\"$(dirname \"$0\")/commands\"\n");
    relay.setPermissions(QFile::Permissions(0x7755));
    relay.close();
    const auto commands = [this] {
        QFile file(compositor->path(QStringLiteral("commands")));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    const auto bind = [&](const QString& heading) {
        auto lines = guideLines(heading);
        for (auto& line : lines) {
            EXPECT_TRUE(line.contains(QStringLiteral("/quillo "))) << line.toStdString();
            line.replace(QRegularExpression(QStringLiteral("exec \\S+/quillo ")),
                         QStringLiteral("exec %1 ").arg(program));
        }
        configure(lines);
    };
    bind(QStringLiteral("Hold to talk:"));
    session.run(QStringLiteral("wtype"), {QStringLiteral("-P"), QStringLiteral("F9"), QStringLiteral("-s"),
                                          QStringLiteral("900"), QStringLiteral("-p"), QStringLiteral("F9")});
    EXPECT_TRUE(waitUntil([&] { return commands() == "start\nstop\n"; })) << commands().toStdString();

    configure({QStringLiteral("unbindsym F9"), QStringLiteral("unbindsym --release F9")});
    bind(QStringLiteral("One press starts, the next stops:"));
    for (const auto* expected : {"start\nstop\ntoggle\n", "start\nstop\ntoggle\ntoggle\n"}) {
        session.run(QStringLiteral("wtype"), {QStringLiteral("-k"), QStringLiteral("F9")});
        EXPECT_TRUE(waitUntil([&] { return commands() == expected; })) << commands().toStdString();
    }
}

TEST_F(WaylandDictationTest, WithoutAnXServerItWorksToo) {
    enter({});
    start();
    dictate(command(QStringLiteral("start")), command(QStringLiteral("stop")));
    EXPECT_EQ(paste(), spoken);
}

TEST_F(WaylandDictationTest, WithoutAnyClipboardItSaysSo) {
    enter({.kind = WaylandCompositor::Kind::weston});
    start();
    command(QStringLiteral("start"))();
    EXPECT_TRUE(
        waitUntil([&] { return !session.status().value(QStringLiteral("message")).toString().isEmpty(); }, 10s));
    EXPECT_TRUE(session.status().value(QStringLiteral("message")).toString().contains(QStringLiteral("Xwayland")))
        << session.status().value(QStringLiteral("message")).toString().toStdString();
    EXPECT_TRUE(session.quillo({QStringLiteral("setup-key")}).contains(QStringLiteral("quillo toggle")));
}

} // namespace
