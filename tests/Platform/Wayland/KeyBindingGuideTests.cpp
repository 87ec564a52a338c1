#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include "Support/Files.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

namespace quillo {
namespace {

using test::contentOf;
using test::writeFile;

const QString program = u"/opt/my programs/quillo's %1"_qs;

QProcessEnvironment desktop(const char* name) {
    QProcessEnvironment result;
    result.insert(u"XDG_CURRENT_DESKTOP"_qs, QString::fromLatin1(name));
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
    bare.insert(u"SWAYSOCK"_qs, u"/run/sway.sock"_qs);
    EXPECT_EQ(desktopShell(bare), DesktopShell::sway);
}

TEST(KeyBindingGuideTest, AShellReadsTheProgramAsOneWord) {
    for (const auto& path : {u"/usr/bin/quillo"_qs, program, u"/x/$(touch y)`z`\"\\"_qs}) {
        QProcess shell;
        shell.start(u"sh"_qs, {u"-c"_qs, u"printf '%s|' "_qs + shellWord(path) + u" end"_qs});
        ASSERT_TRUE(shell.waitForFinished());
        EXPECT_EQ(QString::fromUtf8(shell.readAllStandardOutput()), path + u"|end|"_qs);
    }
}

TEST(KeyBindingGuideTest, NamesTheCommandOnEveryDesktopInEveryLanguage) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(u"quillo.ini"_qs));
    for (const auto& locale : LocalizationStrings::locales()) {
        const LocalizationManager texts(preferences, {locale});
        for (const auto shell : {DesktopShell::gnome, DesktopShell::plasma, DesktopShell::sway, DesktopShell::hyprland,
                                 DesktopShell::xfce, DesktopShell::other}) {
            const auto guide = keyBindingGuide(shell, DesktopProtocol::wayland, program, texts);
            EXPECT_TRUE(guide.contains(shellWord(program) + u" toggle"_qs)) << guide.toStdString();
        }
    }
}

// The lines for a terminal, run against a substitute that stores the list in the real program's format.
TEST(KeyBindingGuideTest, TheLinesForGnomeKeepWhatIsBound) {
    const auto guide = keyBindingGuide(DesktopShell::gnome, DesktopProtocol::wayland, u"/usr/bin/quillo"_qs);
    QString script;
    for (const auto& line : guide.mid(guide.indexOf(u"  keys=")).split(u'\n')) {
        if (!line.startsWith(u"  "))
            break;
        script += line + u'\n';
    }
    const auto own = u"/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillo/"_qs;
    const std::pair<QString, QString> cases[] = {
        {u"@as []"_qs, u"['%1']"_qs.arg(own)},
        {u"['/a/', '/b/']"_qs, u"['/a/', '/b/', '%1']"_qs.arg(own)},
        {u"['%1', '/b/']"_qs.arg(own), u"['%1', '/b/']"_qs.arg(own)},
    };
    for (const auto& [before, after] : cases) {
        const QTemporaryDir folder;
        writeFile(folder.filePath(u"list"_qs), before.toUtf8());
        writeFile(folder.filePath(u"gsettings"_qs),
                  "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n"
                  "case \"$1 $3\" in 'get custom-keybindings') cat list ;; 'set custom-keybindings') printf %s \"$4\" "
                  ">list ;;\n"
                  "*) printf '%s\\n' \"$3=$4\" >>keys ;; esac\n",
                  QFile::ExeOwner);
        QProcess shell;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_qs, folder.path() + u':' + qEnvironmentVariable("PATH"));
        shell.setProcessEnvironment(environment);
        shell.start(u"sh"_qs, {u"-ec"_qs, script});
        ASSERT_TRUE(shell.waitForFinished());
        EXPECT_EQ(shell.exitCode(), 0) << shell.readAllStandardError().toStdString();
        EXPECT_EQ(QString::fromUtf8(contentOf(folder.filePath(u"list"_qs))), after);
        EXPECT_EQ(contentOf(folder.filePath(u"keys"_qs)), "name=Quillo\ncommand=/usr/bin/quillo toggle\nbinding=F9\n");
    }
}

} // namespace
} // namespace quillo
