#include "FileFixture.h"
#include "ServerProcess.h"
#include "SignInFixture.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace quillo::test;

namespace {

/// The administrator's commands, given while the server runs.
class AccountsCommands : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(Browser(server).submit("/auth/register", annsForm).status, 200);
        access = accessOf(redeem(server, Browser(server).submit("/auth/login", annsForm).code()));
    }

    QStringList arguments(const QString& command) const {
        const auto folder = QString::fromStdString(server.dataFolder().string());
        return words(u"accounts "_qs + command + (command.contains(u"--data") ? u""_qs : u" --data "_qs + folder));
    }
    Outcome run(const char* command, const QByteArray& input = {}) const {
        return runServer(arguments(QString::fromLatin1(command)), input);
    }

    int statusOfSignIn(const char* words) const {
        return Browser(server).submit("/auth/login", {{"email", "ann@example.org"}, {"password", words}}).status;
    }

    TestServer server;
    std::string access;
};

TEST_F(AccountsCommands, ListsResetsAndDeletesWhileTheServerRuns) {
    const auto listed = run("list");
    EXPECT_EQ(listed.code, 0);
    EXPECT_TRUE(listed.output.contains("ann@example.org  Ann")) << listed.output.data();

    EXPECT_EQ(run("reset-password Ann@example.org", "another few words\n").code, 0);
    EXPECT_EQ(statusOfMe(server, access), 401) << "sign-ins end with the old password";
    EXPECT_EQ(statusOfSignIn(password), 401);
    EXPECT_EQ(statusOfSignIn("another few words"), 200);

    EXPECT_EQ(run("delete Ann@example.org --yes").code, 0);
    EXPECT_EQ(statusOfSignIn("another few words"), 401);
    EXPECT_FALSE(run("list").output.contains("ann@"));
    for (const int code : {0, 1})
        EXPECT_EQ(run("add Ann@example.org", "quite other words\n").code, code) << "made once";
    EXPECT_EQ(statusOfSignIn("quite other words"), 200);
}

TEST(AccountsCommand, DeletesWhatTheServerIsWorkingOn) {
    auto [recogniser, server, other] = gatedServer({.maxSpoolBytes = 100000, .fileWorkers = 1});
    const auto signedIn = redeem(server, Browser(server).submit("/auth/register", annsForm).code());
    const auto token = QString::fromStdString(accessOf(signedIn));
    recogniser->hold();
    Form form; // of 32044 bytes
    OpenRequest running(server, uploadRequest("/api/v1/transcription/file", token, form.body()));
    ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 1; }));
    form.recordingId = "queued";
    OpenRequest queued(server, uploadRequest("/api/v1/transcription/diarize", token, form.body()));
    const QByteArray path = "/transcription/recording/queued/diarization";
    ASSERT_TRUE(waitUntil([&] { return getAs(server, token, path).status == 200; }));

    const auto folder = QString::fromStdString(server.dataFolder().string());
    EXPECT_EQ(runServer(words(u"accounts delete ann@example.org --yes --data "_qs + folder)).code, 0);
    EXPECT_EQ(spooledFiles(server), 0U);
    recogniser->release();
    EXPECT_EQ(running.answer().status, 404);
    EXPECT_EQ(queued.answer().status, 404);
    // The room is there again, although another process took the files away.
    form.file = wav(45000);
    EXPECT_EQ(upload(server, other, form).status, 200);
}

struct WrongCommand {
    const char* command;
    QByteArray input;
    int code;
    const char* said;
};

TEST_F(AccountsCommands, WhatIsWrongChangesNothingAndIsSaid) {
    const WrongCommand cases[] = {
        {"", {}, 2, "say list, add EMAIL, reset-password EMAIL or delete EMAIL"},
        {"nonsense", {}, 2, "say list"},
        {"list ann@example.org", {}, 2, "takes nothing after it"},
        {"reset-password", {}, 2, "give one e-mail address"},
        {"reset-password ann@example.org a-password", {}, 2, "no password: it is asked for"},
        {"reset-password ann", {}, 2, "is not an e-mail address"},
        {"reset-password ann@example.org --force", {}, 2, "--force"},
        {"reset-password nobody@example.org", "another few words\n", 3, "there is no account nobody@example.org"},
        {"reset-password ann@example.org", "short\n", 1, "at least 10 characters"},
        {"reset-password ann@example.org", "", 1, "no password was given"},
        {"reset-password ann@example.org", "\n", 1, "Choose a password"},
        {"reset-password ann@example.org", QByteArray(100000, 'p'), 1, "no password was given"},
        {"delete ann@example.org", "ann@example.org\n", 2, "add --yes"},
        {"delete nobody@example.org --yes", {}, 3, "there is no account"},
        {"list --data=/nonexistent", {}, 1, "there are no accounts in"},
    };
    for (const auto& [command, input, code, said] : cases) {
        const auto outcome = run(command, input);
        EXPECT_EQ(outcome.code, code) << said << outcome.errors.data();
        EXPECT_TRUE(outcome.errors.contains(said)) << said << " in " << outcome.errors.data();
    }
    EXPECT_EQ(statusOfMe(server, access), 200);
}

/// A command in front of a terminal.
class Terminal {
public:
    explicit Terminal(const QStringList& arguments)
        : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
        ::grantpt(m_master);
        ::unlockpt(m_master);
        const std::string name = ::ptsname(m_master);
        process.setChildProcessModifier([name] {
            ::setsid();
            const int terminal = ::open(name.c_str(), O_RDWR);
            ::ioctl(terminal, TIOCSCTTY, 0);
            ::dup2(terminal, STDIN_FILENO);
        });
        process.start(qEnvironmentVariable("QUILLO_SERVER"), arguments);
    }
    ~Terminal() { ::close(m_master); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Types `text` when the command has asked for it.
    void answer(const char* question, const QByteArray& text) {
        EXPECT_TRUE(waitUntil([&] {
            m_asked += process.readAllStandardError();
            return m_asked.contains(question) || process.state() == QProcess::NotRunning;
        }));
        EXPECT_TRUE(m_asked.contains(question)) << m_asked.data();
        m_asked.clear();
        EXPECT_EQ(::write(m_master, text.data(), static_cast<size_t>(text.size())), text.size());
    }
    int end() {
        EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
        return process.exitCode();
    }
    /// What the terminal has shown of what was typed.
    QByteArray echo() const {
        QByteArray shown(4096, '\0');
        shown.resize(static_cast<qsizetype>(std::max<ssize_t>(0, ::read(m_master, shown.data(), 4096))));
        return shown;
    }
    bool isEchoing() const {
        termios settings{};
        return ::tcgetattr(m_master, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }

    QProcess process;

private:
    int m_master;
    QByteArray m_asked;
};

TEST_F(AccountsCommands, ATerminalShowsNoPasswordAndIsAskedTwice) {
    const auto command = arguments(u"reset-password Ann@example.org"_qs);
    Terminal differs(command);
    differs.answer("New password", "another few words\n");
    differs.answer("once more", "yet another few words\n");
    EXPECT_EQ(differs.end(), 1);
    Terminal brokenOff(command);
    brokenOff.answer("New password", "another\x03 few words\n");
    EXPECT_EQ(brokenOff.end(), 1);
    EXPECT_TRUE(brokenOff.isEchoing());
    EXPECT_EQ(statusOfMe(server, access), 200);

    Terminal same(command);
    same.answer("New password", "another few words\n");
    same.answer("once more", "another few words\n");
    EXPECT_EQ(same.end(), 0);
    for (const auto* terminal : {&differs, &same}) {
        EXPECT_FALSE(terminal->echo().contains("words"));
        EXPECT_TRUE(terminal->isEchoing()) << "given back as it was";
    }
    EXPECT_EQ(statusOfSignIn("another few words"), 200);

    Terminal declined(arguments(u"delete Ann@example.org"_qs));
    declined.answer("Type the address", "yes\n");
    EXPECT_EQ(declined.end(), 1);
    EXPECT_EQ(statusOfSignIn("another few words"), 200);
    Terminal confirmed(arguments(u"delete Ann@example.org"_qs));
    confirmed.answer("Type the address", "ann@example.org\n");
    EXPECT_EQ(confirmed.end(), 0);
    EXPECT_EQ(statusOfSignIn("another few words"), 401);
}

} // namespace
