#include "Platform/Linux/LoginItem/AutostartLoginItem.h"

#include "Support/Async.h"
#include "Support/Files.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace quillo;
using namespace quillo::test;

namespace {

using Status = LoginItemStatus;
using testing::HasSubstr;

const QString entryName = u"/autostart/org.quillo.Quillo.desktop"_qs;

void writeProgram(const QString& path, const QByteArray& script = "#!/bin/sh\n") {
    writeFile(path, script, QFile::ExeOwner);
}

/// A home with a program in it, and a system's configuration folder, both empty.
class AutostartLoginItem : public testing::Test {
protected:
    AutostartLoginItem() {
        writeProgram(place.program);
        writeProgram(folder.filePath(u"bin/other"_qs));
    }

    std::unique_ptr<LoginItem> make() const { return createAutostartLoginItem(place); }

    /// "@" is replaced by the folder of the programs.
    QByteArray filled(QByteArray content) const {
        return content.replace("@", QFile::encodeName(folder.filePath(u"bin"_qs)));
    }

    QTemporaryDir folder;
    AutostartPlace place{.program = folder.filePath(u"bin/quillo"_qs),
                         .arguments = {u"--background"_qs},
                         .userFolder = folder.filePath(u"home/.config"_qs),
                         .systemFolders = {folder.filePath(u"etc"_qs)},
                         .desktops = {u"GNOME"_qs}};
    QString userPath = place.userFolder + entryName;
    QString systemPath = place.systemFolders.constFirst() + entryName;
};

/// Both programs as written by `AutostartLoginItem`; "-" means that there is no file.
struct Case {
    const char* name;
    QByteArray user;
    QByteArray system;
    Status before;
    QByteArray registered;   ///< the user's file after registering; "=" means unchanged
    QByteArray unregistered; ///< the user's file after unregistering instead
};

const QByteArray head = "[Desktop Entry]\nType=Application\nName=Quillo\nIcon=quillo\n";
const QByteArray command = "Exec=@/quillo --background\nTryExec=@/quillo\n";
const QByteArray plain = head + command + "Terminal=false\n";

TEST_F(AutostartLoginItem, LeavesEveryPriorStateAsItShould) {
    const Case cases[] = {
        Case{"None", "-", "-", Status::notRegistered, plain, "-"},
        Case{"Ours", plain, "-", Status::enabled, "=", "-"},
        Case{"OursHidden", plain + "Hidden=true\n", "-", Status::requiresApproval, plain, "-"},
        Case{"SwitchedOffByGnome", plain + "X-GNOME-Autostart-enabled=false\n", "-", Status::requiresApproval, plain,
             "-"},
        Case{"SwitchedOnByGnome", plain + "X-GNOME-Autostart-enabled=true\n", "-", Status::enabled, "=", "-"},
        Case{"OfAnOldPlace", head + "Exec=/gone/quillo\nTryExec=/gone/quillo\nTerminal=false\n", "-",
             Status::notRegistered, plain, "-"},
        Case{"Empty", "\n", "-", Status::requiresApproval, plain, "="},
        // What the user added stays, comments and translations too.
        Case{"Edited", "# mine\n" + plain + "Name[de]=Feder\nX-GNOME-Autostart-Delay=10\n[X]\na=b\n", "-",
             Status::enabled, "=",
             "# mine\n\n" + plain + "Name[de]=Feder\nX-GNOME-Autostart-Delay=10\nHidden=true\n\n[X]\na=b\n"},
        Case{"EditedAndHidden", "# mine\n" + plain + "Hidden=true\nX-Delay=10\n", "-", Status::requiresApproval,
             "# mine\n\n" + plain + "X-Delay=10\n", "="},
        Case{"CommandOfTheUsers", head + "Exec=env A=1 @/other \"two words\"\nTerminal=false\n", "-", Status::enabled,
             "=", head + "Exec=env A=1 @/other \"two words\"\nTerminal=false\nHidden=true\n"},
        Case{"CommandOfTheUsersIsGone", head + "Exec=@/gone -x\nTerminal=false\n", "-", Status::notRegistered,
             head + "Exec=@/quillo --background\nTerminal=false\nTryExec=@/quillo\n",
             head + "Exec=@/gone -x\nTerminal=false\nHidden=true\n"},
        Case{"OnlyElsewhere", plain + "OnlyShowIn=KDE;\n", "-", Status::requiresApproval, plain, "="},
        Case{"OnlyHere", plain + "OnlyShowIn=KDE;GNOME;\n", "-", Status::enabled, "=",
             plain + "OnlyShowIn=KDE;GNOME;\nHidden=true\n"},
        Case{"NotHere", plain + "NotShowIn=GNOME;\n", "-", Status::requiresApproval, plain, "="},
        // The system's entry counts where the user has none, and is switched off by one of the user's.
        Case{"System", "-", plain, Status::enabled, "=", plain + "Hidden=true\n"},
        Case{"SystemHidden", "-", plain + "Hidden=true\n", Status::notRegistered, plain, "-"},
        Case{"SystemOfAGoneProgram", "-", head + "Exec=/gone/quillo\n", Status::notRegistered, plain, "-"},
        Case{"SystemSwitchedOffByTheUser", plain + "Hidden=true\n", plain, Status::requiresApproval, plain, "="},
        Case{"OursBeforeTheSystems", plain, plain, Status::enabled, "=", plain + "Hidden=true\n"},
    };
    for (const auto& given : cases)
        for (const bool registers : {true, false}) {
            SCOPED_TRACE(testing::Message() << given.name << (registers ? ", registered" : ", unregistered"));
            for (const auto& [path, content] : {std::pair(userPath, given.user), {systemPath, given.system}}) {
                QFile::remove(path);
                if (content != "-")
                    writeFile(path, filled(content));
            }
            const auto item = make();
            EXPECT_EQ(item->status(), given.before);
            registers ? item->registerItem() : item->unregisterItem();
            EXPECT_EQ(item->status() == Status::enabled, registers);
            const auto& expected = registers ? given.registered : given.unregistered;
            const auto& wanted = expected == "=" ? given.user : expected;
            EXPECT_EQ(QFileInfo::exists(userPath), wanted != "-");
            EXPECT_EQ(contentOf(userPath), wanted == "-" ? QByteArray() : filled(wanted));
        }
}

TEST_F(AutostartLoginItem, RefusesWithCauseAndNextStepAndLosesNothing) {
    struct Refusal {
        const char* what;
        std::function<void()> arrange;
        const char* cause;
    };
    const auto somethingElse = QByteArray("not an entry\n");
    const std::vector<Refusal> refusals{
        // Of the kernel's file system: not even root may write there.
        {"an unwritable folder", [&] { place.userFolder = u"/proc/self/config"_qs; }, "/proc/self/config"},
        {"other content", [&] { writeFile(userPath, somethingElse); }, "it is not a desktop entry; move it away"},
        {"a folder", [&] { ASSERT_TRUE(QDir().mkpath(userPath)); }, "it is not a regular file; move it away"},
        {"a mask",
         [&] {
             ASSERT_TRUE(QDir().mkpath(QFileInfo(userPath).absolutePath()));
             ASSERT_TRUE(QFile::link(u"/dev/null"_qs, userPath));
         },
         "it is not a regular file; move it away"},
        {"a file for a folder", [&] { writeFile(place.userFolder, somethingElse); },
         "Not a directory; make its folder"},
    };
    const auto folderOfTheUser = place.userFolder;
    for (const auto& refusal : refusals) {
        SCOPED_TRACE(refusal.what);
        place.userFolder = folderOfTheUser;
        QDir(folder.filePath(u"home"_qs)).removeRecursively();
        refusal.arrange();
        EXPECT_THAT([&] { make()->registerItem(); }, testing::ThrowsMessage<LoginItemError>(HasSubstr(refusal.cause)));
        EXPECT_NE(make()->status(), Status::enabled);
    }
    EXPECT_EQ(contentOf(folderOfTheUser), somethingElse);
    place.userFolder.clear();
    EXPECT_THROW(make()->registerItem(), LoginItemError);
    EXPECT_EQ(make()->status(), Status::notRegistered);
}

TEST_F(AutostartLoginItem, WritesThroughALinkAndLeavesNothingBeside) {
    const auto target = folder.filePath(u"dotfiles/entry"_qs);
    writeFile(target, filled(plain + "Hidden=true\n"));
    ASSERT_TRUE(QDir().mkpath(QFileInfo(userPath).absolutePath()));
    ASSERT_TRUE(QFile::link(target, userPath));
    make()->registerItem();
    EXPECT_TRUE(QFileInfo(userPath).isSymLink());
    EXPECT_EQ(contentOf(target), filled(plain));
    EXPECT_EQ(
        QDir(QFileInfo(userPath).absolutePath()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList{QFileInfo(userPath).fileName()});
}

TEST_F(AutostartLoginItem, MakesFoldersForTheUserAlone) {
    make()->registerItem();
    for (const auto& path : {place.userFolder, QFileInfo(userPath).absolutePath()}) {
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0700U);
    }
}

/// The entry is launched by GLib, which GNOME's and other sessions use, from a place that needs every kind of escape.
TEST_F(AutostartLoginItem, StartsAProgramWithAnyNameAndArguments) {
    place.program = folder.filePath(u"a $HOME `x` \"q\" \\ ü;&'*/quillo"_qs);
    place.arguments = {u"--as=\"50% %u $x\" \\"_qs, QString(), u"`id` ~"_qs};
    const auto answer = folder.filePath(u"answers"_qs);
    ASSERT_TRUE(QDir().mkpath(answer));
    // The answer appears whole, by a rename.
    writeProgram(place.program, "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" >'" + QFile::encodeName(answer) +
                                    ".new'\nmv '" + QFile::encodeName(answer) + ".new' '" + QFile::encodeName(answer) +
                                    "/arguments'\n");
    make()->registerItem();
    ASSERT_EQ(make()->status(), Status::enabled);

    QProcess launcher;
    launcher.start(u"gio"_qs, {u"launch"_qs, userPath});
    ASSERT_TRUE(launcher.waitForFinished()) << launcher.errorString().toStdString();
    ASSERT_EQ(launcher.exitCode(), 0) << launcher.readAllStandardError().toStdString();
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(answer + u"/arguments"_qs); }, std::chrono::seconds(30)))
        << "the entry started nothing";
    EXPECT_EQ(QString::fromUtf8(contentOf(answer + u"/arguments"_qs)),
              place.program + QLatin1Char('\n') + place.arguments.join(QLatin1Char('\n')) + QLatin1Char('\n'));

    QProcess validator;
    validator.start(u"desktop-file-validate"_qs, {userPath});
    ASSERT_TRUE(validator.waitForFinished()) << validator.errorString().toStdString();
    EXPECT_EQ(validator.readAll().toStdString(), "");
    EXPECT_EQ(validator.exitCode(), 0);

    // Read back, it is still known as ours.
    make()->unregisterItem();
    EXPECT_FALSE(QFileInfo::exists(userPath));
}

TEST(AutostartPlace, FollowsTheBaseDirectorySpecification) {
    const std::tuple<const char*, const char*, const char*, QString, QStringList> environments[] = {
        {"/c", "/h", "/a:/b", u"/c"_qs, {u"/a"_qs, u"/b"_qs}},
        {"", "/h", "", u"/h/.config"_qs, {u"/etc/xdg"_qs}},
        {"relative", "/h", "x:/a", u"/h/.config"_qs, {u"/a"_qs}},
        {"", "", "x", QString(), {u"/etc/xdg"_qs}},
    };
    std::map<const char*, QByteArray> kept;
    for (const char* name : {"XDG_CONFIG_HOME", "HOME", "XDG_CONFIG_DIRS"})
        kept[name] = qgetenv(name);
    for (const auto& [configuration, home, system, userFolder, systemFolders] : environments) {
        qputenv("XDG_CONFIG_HOME", configuration);
        qputenv("HOME", home);
        qputenv("XDG_CONFIG_DIRS", system);
        const auto place = AutostartPlace::ofThisProcess();
        EXPECT_EQ(place.userFolder, userFolder);
        EXPECT_EQ(place.systemFolders, systemFolders);
        EXPECT_EQ(QFileInfo(place.program).fileName(), u"AutostartLoginItemTests"_qs);
    }
    for (const auto& [name, value] : kept)
        qputenv(name, value);
}

} // namespace
