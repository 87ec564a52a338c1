// The start in sessions where something is missing, locked, broken or there already: the program comes up with what is
// left, says what is not there, and dictates where a dictation is possible.

#include "DesktopSession.h"
#include "Support/Async.h"
#include "Support/Files.h"

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString said = u"Nothing is ever lost."_qs;

class Startup : public testing::Test {
protected:
    DesktopSession& begin(DesktopSession::Options options) {
        m_session.emplace(options);
        m_session->recognise(said);
        return *m_session;
    }

    QProcess& start(const QStringList& wrapper = {}) { return m_session->startQuillo({}, wrapper); }

    bool logs(const QString& words, int times = 1) {
        return waitUntil([&] { return m_session->logged(words) >= times; }, 10s);
    }
    /// Whether a window is to be seen that xdotool finds by `search`.
    bool isShown(const QString& search) {
        return !m_session->shell(u"xdotool search --onlyvisible %1 2>/dev/null"_qs.arg(search)).isEmpty();
    }

    /// Holds the hotkey and speaks; whether the text arrived in a field. Needs no session bus.
    bool dictates() {
        const auto line = u"🎤 Starting audio capture"_qs;
        return dictates([this, line, before = m_session->logged(line)] { return m_session->logged(line) > before; });
    }
    bool dictates(const std::function<bool()>& hasBegun) {
        m_session->openTextField();
        m_session->pressKey(DesktopSession::rightSuper);
        const bool began = waitUntil(hasBegun, 10s);
        m_session->play(m_session->synthesize(u"hello there everybody"_qs));
        m_session->releaseKey(DesktopSession::rightSuper);
        return began && waitUntil([&] { return m_session->fieldReport().text.contains(said); }, 20s);
    }

    void chooseLanguage() {
        const auto preferences = m_session->path(u"home/.config/quillo/quillo.ini"_qs);
        writeFile(preferences, contentOf(preferences) + "primaryLanguage=en\nlanguageChosen=true\n");
    }

    std::optional<DesktopSession> m_session;
};

TEST_F(Startup, WithoutASessionBus) {
    begin({.sessionBus = false});
    chooseLanguage();
    start();
    EXPECT_TRUE(logs(u"No session bus"_qs));
    EXPECT_TRUE(logs(u"No host for tray icons"_qs));
    EXPECT_TRUE(logs(u"No secret service answers on this desktop"_qs));
    EXPECT_TRUE(dictates());
    int code = 0;
    EXPECT_TRUE(m_session->quillo({u"status"_qs}, &code).contains(u"no session bus"_qs));
    EXPECT_EQ(code, 3);
}

TEST_F(Startup, WithoutASecretServiceTheTokensAreInAFileOfTheOwner) {
    begin({.secrets = DesktopSession::Secrets::none});
    auto& first = start();
    EXPECT_TRUE(logs(u"No secret service answers on this desktop"_qs));
    const QFileInfo secrets(m_session->path(u"home/.local/share/quillo/secrets.json"_qs));
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(secrets.filePath()); }));
    EXPECT_EQ(secrets.permissions() & 0x77, QFile::Permissions()) << "others may read the tokens";
    ASSERT_TRUE(logs(u"Anonymous session created"_qs));
    m_session->end(first);
    start();
    EXPECT_TRUE(logs(u"User data restored from storage"_qs));
    EXPECT_EQ(m_session->logged(u"Anonymous session created"_qs), 1);
}

TEST_F(Startup, TheSettingsOfWhoIsSignedInHoldFromTheFirstMoment) {
    begin({.secrets = DesktopSession::Secrets::none});
    const auto preferences = m_session->path(u"home/.config/quillo/quillo.ini"_qs);
    writeFile(preferences,
              contentOf(preferences) +
                  "launchAtLogin=true\nselectedMicrophoneId=of-nobody\nu1_launchAtLogin=false\n"
                  "u1_selectedMicrophoneId=of-u1\nu1_onboardingCompleted=true\nmigration.userScope.v1=true\n");
    const auto entry = [](const char* key, const QByteArray& value) {
        return QByteArray("\"com.quillospeech.") + key + "\": \"" + value.toBase64() + "\"";
    };
    const auto secrets = m_session->path(u"home/.local/share/quillo/secrets.json"_qs);
    QDir().mkpath(QFileInfo(secrets).path());
    writeFile(secrets, "{" + entry("accessToken", "access") + "," + entry("refreshToken", "refresh") + "," +
                           entry("userData",
                                 R"({"id":"u1","email":"anna@example.org","full_name":"Anna","is_anonymous":false})") +
                           "}");
    const auto nobodys = u"Preferred input device set to: of-nobody"_qs;
    const auto annas = u"Preferred input device set to: of-u1"_qs;
    const auto login = u"Launch at Login: desired=true"_qs;
    auto& first = start();
    EXPECT_TRUE(logs(annas)) << "as soon as it is known who it is";
    m_session->end(first);
    const auto before = std::tuple(m_session->logged(nobodys), m_session->logged(login), m_session->logged(annas) + 1);
    const auto restored = u"Token expires at: "_qs;
    const int restoredBefore = m_session->logged(restored);
    start();
    EXPECT_TRUE(logs(restored, restoredBefore + 1));
    EXPECT_EQ(std::tuple(m_session->logged(nobodys), m_session->logged(login), m_session->logged(annas)), before);
}

TEST_F(Startup, ALockedKeyringIsWaitedForAndItsSessionComesBack) {
    begin({});
    auto& first = start();
    ASSERT_TRUE(logs(u"User data stored"_qs));
    m_session->end(first);
    m_session->lockKeyring();
    start();
    EXPECT_TRUE(logs(u"The keyring of this desktop is locked"_qs));
    ASSERT_TRUE(logs(u"Anonymous session created"_qs, 2)) << "no session to dictate with";
    EXPECT_FALSE(isShown(u"--class gcr-prompter"_qs)) << "asks for a password unasked";
    EXPECT_FALSE(QFile::exists(m_session->path(u"home/.local/share/quillo/secrets.json"_qs)));
    m_session->unlockKeyring();
    EXPECT_TRUE(logs(u"The keyring was unlocked"_qs));
    EXPECT_TRUE(logs(u"User data restored from storage"_qs));
}

TEST_F(Startup, WithoutASoundServerItStartsAndDictatesOnceThereIsOne) {
    begin({.sound = false});
    chooseLanguage();
    start();
    EXPECT_TRUE(logs(u"No sound server"_qs));
    m_session->pressKey(DesktopSession::rightSuper);
    EXPECT_TRUE(waitUntil([&] { return m_session->status("message").contains(u"sound server"_qs); }));
    m_session->releaseKey(DesktopSession::rightSuper);
    m_session->startSound();
    EXPECT_TRUE(logs(u"The sound server is back"_qs));
    EXPECT_TRUE(dictates());
}

TEST_F(Startup, AReadOnlyHomeIsNoReasonNotToDictate) {
    begin({});
    chooseLanguage();
    // A mount of the program's own; to its owner, root, mere permissions would be no hindrance.
    const auto script = u"mount --bind \"$HOME\" \"$HOME\" && mount -o remount,ro,bind \"$HOME\" && exec \"$@\""_qs;
    const QStringList readOnly{u"unshare"_qs, u"-m"_qs, u"sh"_qs, u"-c"_qs, script, u"sh"_qs};
    start(readOnly);
    const auto prints = [this](const char* words) {
        return contentOf(m_session->path(u"quillo.log"_qs)).contains(words);
    };
    EXPECT_TRUE(prints("cannot be written. Until you log out"));
    ASSERT_TRUE(waitUntil([&] { return prints("Anonymous session created"); }));
    EXPECT_TRUE(dictates([&] { return m_session->status("status") == u"recording"; }));
    // What was said is kept as long as the session.
    const auto list =
        readOnly.mid(1) + QStringList{QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo"), u"history"_qs, u"list"_qs};
    EXPECT_TRUE(waitUntil([&] { return m_session->run(readOnly.front(), list).contains(said); }));
}

TEST_F(Startup, ABrokenHistoryIsPutAsideAndSaidSo) {
    begin({});
    chooseLanguage();
    const auto folder = m_session->path(u"home/.local/share/Quillo"_qs);
    writeFile(folder + u"/quillo.store"_qs, QByteArray("SQLite format 3\0 and then nonsense", 34).repeated(300));
    start();
    EXPECT_TRUE(dictates());
    EXPECT_FALSE(QDir(folder).entryList({u"quillo.store.damaged-*"_qs}).isEmpty())
        << QDir(folder).entryList().join(u' ').toStdString();
    ASSERT_TRUE(waitUntil([&] {
        return m_session->quillo({u"history"_qs, u"list"_qs}).contains(said);
    })) << "the new history keeps nothing";
}

TEST_F(Startup, ASecondInstanceShowsTheFirstAndEnds) {
    begin({});
    auto& first = start();
    int code = -1;
    EXPECT_TRUE(m_session->quillo({}, &code).contains(u"running already"_qs));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(waitUntil([&] { return isShown(u"--name Quillo"_qs); }, 10s)) << "nothing was brought to the front";
    EXPECT_EQ(first.state(), QProcess::Running);
    // A URL that answers no sign-in is handed over and changes nothing.
    m_session->quillo({u"quillo://auth/callback?code=forged&state=forged"_qs}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(m_session->logged(u"Exchanging authorization code"_qs), 0);
}

TEST_F(Startup, OnMockServicesTheInterfaceRunsWithNothingBehindIt) {
    begin({.sound = false});
    m_session->environment().insert(u"USE_MOCK_SERVICES"_qs, u"1"_qs);
    auto& process = start();
    m_session->quillo({u"settings"_qs, u"set"_qs, u"primaryLanguage"_qs, u"en"_qs});
    m_session->quillo({u"start"_qs});
    ASSERT_TRUE(m_session->waitForStatus(u"recording"_qs));
    ASSERT_TRUE(waitUntil([&] { return m_session->status("partialText").size() > 10; }));
    m_session->quillo({u"stop"_qs});
    ASSERT_TRUE(m_session->waitForStatus(u"idle"_qs));
    EXPECT_TRUE(m_session->lastRun().value(u"text"_qs).toString().startsWith(u"The quick"_qs));
    EXPECT_FALSE(QFile::exists(m_session->path(u"home/.local/share/Quillo/quillo.store"_qs)));
    EXPECT_EQ(process.state(), QProcess::Running);
}

TEST_F(Startup, WithoutServicesItRunsAndSaysWhy) {
    begin({});
    m_session->environment().insert(u"QUILLO_SERVER_HOST"_qs, u"https://not.a.host/"_qs);
    auto& process = start();
    EXPECT_TRUE(m_session->status("message").contains(u"https://not.a.host/"_qs));
    int code = 0;
    EXPECT_TRUE(m_session->quillo({u"toggle"_qs}, &code).contains(u"https://not.a.host/"_qs));
    EXPECT_EQ(code, 1);
    m_session->quillo({u"quit"_qs});
    EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
}

TEST_F(Startup, ANewUserIsWelcomedOnceAndTheStartGoesInItsOrder) {
    begin({.newUser = true});
    m_session->environment().insert(u"QUILLO_SERVER_HOST"_qs, u"127.0.0.1:9"_qs);
    start();
    EXPECT_TRUE(waitUntil([&] { return isShown(u"--name 'Welcome to Quillo'"_qs); }, 10s));
    const QStringList order{u"🚀 Application launching..."_qs,
                            u"✅ Using shared ModelContainer"_qs,
                            u"✅ Basic status item created in menu bar"_qs,
                            u"✅ Quillo launched, basic menu bar ready"_qs,
                            u"Server host: 127.0.0.1:9"_qs,
                            u"WebSocket endpoint: ws://127.0.0.1:9/ws/v3/transcribe"_qs,
                            u"Services initialized via ServiceContainer"_qs,
                            u"fresh install, will use Right ⌘"_qs,
                            u"Starting hotkey service"_qs,
                            u"Checking for existing session"_qs,
                            u"Session fallback: anonymous auth failed"_qs};
    ASSERT_TRUE(logs(order.constLast()));
    qsizetype at = 0;
    const auto log = QString::fromUtf8(contentOf(m_session->logFile()));
    for (const auto& line : order) {
        const auto found = log.indexOf(line, at);
        EXPECT_GE(found, 0) << line.toStdString() << " is missing, or out of its order";
        at = std::max(at, found);
    }
}

} // namespace
