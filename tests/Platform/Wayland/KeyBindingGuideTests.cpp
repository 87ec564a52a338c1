#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace quillo {
namespace {

const QString program = QStringLiteral("/opt/my programs/quillo's %1");

QProcessEnvironment desktop(const char* name) {
    QProcessEnvironment result;
    result.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QString::fromLatin1(name));
    return result;
}

TEST(KeyBindingGuideTest, KnowsTheDesktopByItsNames) {
    const std::pair<const char*, DesktopShell> cases[] = {
        {"GNOME", DesktopShell::gnome},       {"ubuntu:GNOME", DesktopShell::gnome},
        {"KDE", DesktopShell::plasma},        {"sway", DesktopShell::sway},
        {"Hyprland", DesktopShell::hyprland}, {"XFCE", DesktopShell::xfce},
        {"X-Cinnamon", DesktopShell::other},  {"", DesktopShell::other},
        {"niri", DesktopShell::other},
    };
    for (const auto& [name, shell] : cases)
        EXPECT_EQ(desktopShell(desktop(name)), shell) << name;
    QProcessEnvironment bare;
    bare.insert(QStringLiteral("SWAYSOCK"), QStringLiteral("/run/sway.sock"));
    EXPECT_EQ(desktopShell(bare), DesktopShell::sway);
}

TEST(KeyBindingGuideTest, AShellReadsTheProgramAsOneWord) {
    for (const auto& path : {QStringLiteral("/usr/bin/quillo"), program, QStringLiteral("/x/$(touch y)`z`\"\\")}) {
        QProcess shell;
        shell.start(QStringLiteral("sh"),
                    {QStringLiteral("-c"), QStringLiteral("printf '%s|' ") + shellWord(path) + QStringLiteral(" end")});
        ASSERT_TRUE(shell.waitForFinished());
        EXPECT_EQ(QString::fromUtf8(shell.readAllStandardOutput()), path + QStringLiteral("|end|"));
    }
}

TEST(KeyBindingGuideTest, NamesTheCommandOnEveryDesktopInEveryLanguage) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("quillo.ini")));
    for (const auto& locale : LocalizationStrings::locales()) {
        const LocalizationManager texts(preferences, {locale});
        for (const auto shell : {DesktopShell::gnome, DesktopShell::plasma, DesktopShell::sway, DesktopShell::hyprland,
                                 DesktopShell::xfce, DesktopShell::other}) {
            const auto guide = keyBindingGuide(shell, DesktopProtocol::wayland, program, texts);
            EXPECT_TRUE(guide.contains(shellWord(program) + QStringLiteral(" toggle"))) << guide.toStdString();
        }
    }
}

// The lines for a terminal, run against a substitute that stores the list in the real program's format.
TEST(KeyBindingGuideTest, TheLinesForGnomeKeepWhatIsBound) {
    const auto guide =
        keyBindingGuide(DesktopShell::gnome, DesktopProtocol::wayland, QStringLiteral("/usr/bin/quillo"));
    QString script;
    for (const auto& line : guide.mid(guide.indexOf(u"  keys=")).split(u'\n')) {
        if (!line.startsWith(u"  "))
            break;
        script += line + u'\n';
    }
    const auto own = QStringLiteral("/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillo/");
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("@as []"), QStringLiteral("['%1']").arg(own)},
        {QStringLiteral("['/a/', '/b/']"), QStringLiteral("['/a/', '/b/', '%1']").arg(own)},
        {QStringLiteral("['%1', '/b/']").arg(own), QStringLiteral("['%1', '/b/']").arg(own)},
    };
    for (const auto& [before, after] : cases) {
        const QTemporaryDir folder;
        QFile list(folder.filePath(QStringLiteral("list")));
        ASSERT_TRUE(list.open(QIODevice::WriteOnly));
        list.write(before.toUtf8());
        list.close();
        QFile tool(folder.filePath(QStringLiteral("gsettings")));
        ASSERT_TRUE(tool.open(QIODevice::WriteOnly));
        tool.write("#!/bin/sh\ncd \"$(dirname \"$0\")\"\n"
                   "case \"$1 $3\" in 'get custom-keybindings') cat list ;; 'set custom-keybindings') printf %s \"$4\" "
                   ">list ;;\n"
                   "*) printf '%s\\n' \"$3=$4\" >>keys ;; esac\n");
        tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        tool.close();
        QProcess shell;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("PATH"), folder.path() + u':' + qEnvironmentVariable("PATH"));
        shell.setProcessEnvironment(environment);
        shell.start(QStringLiteral("sh"), {QStringLiteral("-ec"), script});
        ASSERT_TRUE(shell.waitForFinished());
        EXPECT_EQ(shell.exitCode(), 0) << shell.readAllStandardError().toStdString();
        ASSERT_TRUE(list.open(QIODevice::ReadOnly));
        EXPECT_EQ(QString::fromUtf8(list.readAll()), after);
        QFile keys(folder.filePath(QStringLiteral("keys")));
        ASSERT_TRUE(keys.open(QIODevice::ReadOnly));
        EXPECT_EQ(keys.readAll(), "name=Quillo\ncommand=/usr/bin/quillo toggle\nbinding=F9\n");
    }
}

} // namespace
} // namespace quillo
