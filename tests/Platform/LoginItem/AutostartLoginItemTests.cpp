#include "Platform/Linux/LoginItem/AutostartLoginItem.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace quillo;

namespace {

using Status = LoginItemStatus;
using testing::HasSubstr;

const QString entryName = QStringLiteral("/autostart/org.quillo.Quillo.desktop");

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& content) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(content), content.size());
}

void writeProgram(const QString& path, const QByteArray& script = "#!/bin/sh\n") {
    writeFile(path, script);
    ASSERT_TRUE(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

/// A home with a program in it, and a system's configuration folder, both empty.
class AutostartLoginItem : public testing::Test {
protected:
    AutostartLoginItem() {
        writeProgram(place.program);
        writeProgram(folder.filePath(QStringLiteral("bin/other")));
    }

    std::unique_ptr<LoginItem> make() const { return createAutostartLoginItem(place); }

    /// "@" is replaced by the folder of the programs.
    QByteArray filled(QByteArray content) const {
        return content.replace("@", QFile::encodeName(folder.filePath(QStringLiteral("bin"))));
    }

    QTemporaryDir folder;
    AutostartPlace place{.program = folder.filePath(QStringLiteral("bin/quillo")),
                         .arguments = {QStringLiteral("--background")},
                         .userFolder = folder.filePath(QStringLiteral("home/.config")),
                         .systemFolders = {folder.filePath(QStringLiteral("etc"))},
                         .desktops = {QStringLiteral("GNOME")}};
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

void PrintTo(const Case& given, std::ostream* out) { *out << given.name; }

class PriorStates : public AutostartLoginItem, public testing::WithParamInterface<Case> {
protected:
    void SetUp() override {
        if (GetParam().user != "-")
            writeFile(userPath, filled(GetParam().user));
        if (GetParam().system != "-")
            writeFile(systemPath, filled(GetParam().system));
    }

    void expectUserFile(const QByteArray& expected) const {
        const auto& wanted = expected == "=" ? GetParam().user : expected;
        if (wanted == "-")
            EXPECT_FALSE(QFileInfo::exists(userPath)) << contentOf(userPath).toStdString();
        else
            EXPECT_EQ(contentOf(userPath).toStdString(), filled(wanted).toStdString());
    }
};

TEST_P(PriorStates, Register) {
    const auto item = make();
    EXPECT_EQ(item->status(), GetParam().before);
    item->registerItem();
    EXPECT_EQ(item->status(), Status::enabled);
    expectUserFile(GetParam().registered);
}

TEST_P(PriorStates, Unregister) {
    const auto item = make();
    item->unregisterItem();
    EXPECT_NE(item->status(), Status::enabled);
    expectUserFile(GetParam().unregistered);
}

INSTANTIATE_TEST_SUITE_P(
    , PriorStates,
    testing::Values(
        Case{"None", "-", "-", Status::notRegistered, plain, "-"}, Case{"Ours", plain, "-", Status::enabled, "=", "-"},
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
        Case{"OursBeforeTheSystems", plain, plain, Status::enabled, "=", plain + "Hidden=true\n"}),
    [](const auto& info) { return info.param.name; });

TEST_F(AutostartLoginItem, RefusesWithCauseAndNextStepAndLosesNothing) {
    struct Refusal {
        const char* what;
        std::function<void()> arrange;
        const char* cause;
    };
    const auto somethingElse = QByteArray("not an entry\n");
    const std::vector<Refusal> refusals{
        {"other content", [&] { writeFile(userPath, somethingElse); }, "it is not a desktop entry; move it away"},
        {"a folder", [&] { ASSERT_TRUE(QDir().mkpath(userPath)); }, "it is not a regular file; move it away"},
        {"a mask",
         [&] {
             ASSERT_TRUE(QDir().mkpath(QFileInfo(userPath).absolutePath()));
             ASSERT_TRUE(QFile::link(QStringLiteral("/dev/null"), userPath));
         },
         "it is not a regular file; move it away"},
        {"a file for a folder", [&] { writeFile(place.userFolder, somethingElse); },
         "Not a directory; make its folder"},
    };
    for (const auto& refusal : refusals) {
        SCOPED_TRACE(refusal.what);
        QDir(folder.filePath(QStringLiteral("home"))).removeRecursively();
        refusal.arrange();
        try {
            make()->registerItem();
            ADD_FAILURE() << "did not refuse";
        } catch (const LoginItemError& error) {
            EXPECT_THAT(error.message().toStdString(), HasSubstr(refusal.cause));
        }
        EXPECT_NE(make()->status(), Status::enabled);
    }
    EXPECT_EQ(contentOf(place.userFolder), somethingElse);
    place.userFolder.clear();
    EXPECT_THROW(make()->registerItem(), LoginItemError);
    EXPECT_EQ(make()->status(), Status::notRegistered);
}

/// A path below a kernel file system, to which not even root may write.
TEST_F(AutostartLoginItem, AFolderThatCannotBeWrittenIsNamed) {
    place.userFolder = QStringLiteral("/proc/self/config");
    try {
        make()->registerItem();
        FAIL() << "did not refuse";
    } catch (const LoginItemError& error) {
        EXPECT_THAT(error.message().toStdString(), HasSubstr("/proc/self/config"));
    }
}

TEST_F(AutostartLoginItem, WritesThroughALinkAndLeavesNothingBeside) {
    const auto target = folder.filePath(QStringLiteral("dotfiles/entry"));
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
    place.program = folder.filePath(QStringLiteral("a $HOME `x` \"q\" \\ ü;&'*/quillo"));
    place.arguments = {QStringLiteral("--as=\"50% %u $x\" \\"), QString(), QStringLiteral("`id` ~")};
    const auto answer = folder.filePath(QStringLiteral("answers"));
    ASSERT_TRUE(QDir().mkpath(answer));
    // The answer appears whole, by a rename.
    writeProgram(place.program, "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" >'" + QFile::encodeName(answer) +
                                    ".new'\nmv '" + QFile::encodeName(answer) + ".new' '" + QFile::encodeName(answer) +
                                    "/arguments'\n");
    make()->registerItem();
    ASSERT_EQ(make()->status(), Status::enabled);

    QFileSystemWatcher watcher({answer});
    QEventLoop loop;
    QObject::connect(&watcher, &QFileSystemWatcher::directoryChanged, &loop, &QEventLoop::quit);
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, &loop, [&] { loop.exit(1); });
    watchdog.start(std::chrono::seconds(30));
    QProcess launcher;
    launcher.start(QStringLiteral("gio"), {QStringLiteral("launch"), userPath});
    ASSERT_TRUE(launcher.waitForFinished()) << launcher.errorString().toStdString();
    ASSERT_EQ(launcher.exitCode(), 0) << launcher.readAllStandardError().toStdString();
    if (!QFileInfo::exists(answer + QStringLiteral("/arguments")))
        ASSERT_EQ(loop.exec(), 0) << "the entry started nothing";
    EXPECT_EQ(QString::fromUtf8(contentOf(answer + QStringLiteral("/arguments"))),
              place.program + QLatin1Char('\n') + place.arguments.join(QLatin1Char('\n')) + QLatin1Char('\n'));

    QProcess validator;
    validator.start(QStringLiteral("desktop-file-validate"), {userPath});
    ASSERT_TRUE(validator.waitForFinished()) << validator.errorString().toStdString();
    EXPECT_EQ(validator.readAll().toStdString(), "");
    EXPECT_EQ(validator.exitCode(), 0);

    // Read back, it is still known as ours.
    make()->unregisterItem();
    EXPECT_FALSE(QFileInfo::exists(userPath));
}

struct Environment {
    const char* configuration;
    const char* home;
    const char* system;
    QString userFolder;
    QStringList systemFolders;
};

TEST(AutostartPlace, FollowsTheBaseDirectorySpecification) {
    const std::vector<Environment> environments{
        {"/c", "/h", "/a:/b", QStringLiteral("/c"), {QStringLiteral("/a"), QStringLiteral("/b")}},
        {"", "/h", "", QStringLiteral("/h/.config"), {QStringLiteral("/etc/xdg")}},
        {"relative", "/h", "x:/a", QStringLiteral("/h/.config"), {QStringLiteral("/a")}},
        {"", "", "x", QString(), {QStringLiteral("/etc/xdg")}},
    };
    std::map<const char*, QByteArray> kept;
    for (const char* name : {"XDG_CONFIG_HOME", "HOME", "XDG_CONFIG_DIRS"})
        kept[name] = qgetenv(name);
    for (const auto& given : environments) {
        qputenv("XDG_CONFIG_HOME", given.configuration);
        qputenv("HOME", given.home);
        qputenv("XDG_CONFIG_DIRS", given.system);
        const auto place = AutostartPlace::ofThisProcess();
        EXPECT_EQ(place.userFolder, given.userFolder);
        EXPECT_EQ(place.systemFolders, given.systemFolders);
        EXPECT_EQ(QFileInfo(place.program).fileName(), QStringLiteral("AutostartLoginItemTests"));
    }
    for (const auto& [name, value] : kept)
        qputenv(name, value);
}

} // namespace
