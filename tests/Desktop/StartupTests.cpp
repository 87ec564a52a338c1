// The start in sessions where something is missing, locked, broken or there already: the program comes up with what is
// left, says what is not there, and dictates where a dictation is possible.

#include "DesktopSession.h"
#include "Support/Async.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const QString said = QStringLiteral("Nothing is ever lost.");

class Startup : public testing::Test {
protected:
    void TearDown() override {
        if (HasFailure() && m_session) {
            m_session->screenshot(m_session->path(QStringLiteral("failure.png")));
            m_session->keepFolder();
            std::cerr << "logs: " << m_session->folder().toStdString() << "\n";
        }
        m_session.reset();
    }

    DesktopSession& begin(DesktopSession::Options options) {
        m_session.emplace(options);
        QFile script(m_session->path(QStringLiteral("script.json")));
        EXPECT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(QJsonDocument(QJsonObject{{QStringLiteral("events"),
                                                QJsonArray{QJsonObject{{QStringLiteral("at"), 0.2},
                                                                       {QStringLiteral("final"), said}}}}})
                         .toJson());
        m_session->environment().insert(QStringLiteral("QUILLO_SERVER_OPTIONS"),
                                        QStringLiteral("--recogniser scripted --script ") + script.fileName());
        return *m_session;
    }

    QProcess& start(const QStringList& wrapper = {}) { return m_session->startQuillo({}, wrapper); }

    QString log() {
        QFile file(m_session->logFile());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    bool logs(const QString& words) {
        return waitUntil([&] { return log().contains(words); }, 10s);
    }

    /// Holds the hotkey and speaks; whether the text arrived in a field. Needs no session bus.
    bool dictates() {
        const auto line = QStringLiteral("🎤 Starting audio capture");
        return dictates([this, line, before = log().count(line)] { return log().count(line) > before; });
    }
    bool dictates(const std::function<bool()>& hasBegun) {
        m_session->openTextField();
        m_session->pressKey(DesktopSession::rightSuper);
        const bool began = waitUntil(hasBegun, 10s);
        m_session->play(m_session->synthesize(QStringLiteral("hello there everybody")));
        m_session->releaseKey(DesktopSession::rightSuper);
        return began && waitUntil([&] { return m_session->fieldReport().text.contains(said); }, 20s);
    }

    QString preferences() const { return m_session->path(QStringLiteral("home/.config/quillo/quillo.ini")); }
    void chooseLanguage() {
        QFile file(preferences());
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.write("primaryLanguage=en\nlanguageChosen=true\n");
    }

    std::optional<DesktopSession> m_session;
};

TEST_F(Startup, WithoutASessionBus) {
    begin({.sessionBus = false});
    chooseLanguage();
    start();
    EXPECT_TRUE(logs(QStringLiteral("No session bus")));
    EXPECT_TRUE(logs(QStringLiteral("No host for tray icons")));
    EXPECT_TRUE(logs(QStringLiteral("No secret service answers on this desktop")));
    EXPECT_TRUE(dictates());
    int code = 0;
    EXPECT_TRUE(m_session->quillo({QStringLiteral("status")}, &code).contains(QStringLiteral("no session bus")));
    EXPECT_EQ(code, 3);
}

TEST_F(Startup, WithoutASecretServiceTheTokensAreInAFileOfTheOwner) {
    begin({.secrets = DesktopSession::Secrets::none});
    auto& first = start();
    EXPECT_TRUE(logs(QStringLiteral("No secret service answers on this desktop")));
    const QFileInfo secrets(m_session->path(QStringLiteral("home/.local/share/quillo/secrets.json")));
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(secrets.filePath()); }));
    EXPECT_EQ(secrets.permissions() & 0x77, QFile::Permissions()) << "others may read the tokens";
    ASSERT_TRUE(logs(QStringLiteral("Anonymous session created")));
    m_session->end(first);
    start();
    EXPECT_TRUE(logs(QStringLiteral("User data restored from storage")));
    EXPECT_EQ(log().count(QStringLiteral("Anonymous session created")), 1);
}

TEST_F(Startup, TheSettingsOfWhoIsSignedInHoldFromTheFirstMoment) {
    begin({.secrets = DesktopSession::Secrets::none});
    QFile file(preferences());
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("launchAtLogin=true\nselectedMicrophoneId=of-nobody\nu1_launchAtLogin=false\n"
               "u1_selectedMicrophoneId=of-u1\nu1_onboardingCompleted=true\nmigration.userScope.v1=true\n");
    file.close();
    const auto encoded = [](const QByteArray& value) { return QString::fromLatin1(value.toBase64()); };
    const QJsonObject secrets{
        {QStringLiteral("com.quillospeech.accessToken"), encoded("access")},
        {QStringLiteral("com.quillospeech.refreshToken"), encoded("refresh")},
        {QStringLiteral("com.quillospeech.userData"),
         encoded(R"({"id":"u1","email":"anna@example.org","full_name":"Anna","is_anonymous":false})")}};
    const auto path = m_session->path(QStringLiteral("home/.local/share/quillo/secrets.json"));
    QDir().mkpath(QFileInfo(path).path());
    QFile store(path);
    ASSERT_TRUE(store.open(QIODevice::WriteOnly));
    store.write(QJsonDocument(secrets).toJson());
    store.close();

    const auto microphone = QStringLiteral("Preferred input device set to: ");
    auto& first = start();
    EXPECT_TRUE(logs(microphone + QStringLiteral("of-u1"))) << "as soon as it is known who it is";
    m_session->end(first);
    const auto before = log().size();
    start();
    EXPECT_TRUE(waitUntil([&] { return log().mid(before).contains(QStringLiteral("Token expires at: ")); }, 10s));
    const auto second = log().mid(before);
    EXPECT_FALSE(second.contains(microphone + QStringLiteral("of-nobody"))) << second.toStdString();
    EXPECT_FALSE(second.contains(QStringLiteral("Launch at Login: desired=true")));
    EXPECT_TRUE(second.contains(microphone + QStringLiteral("of-u1")));
}

TEST_F(Startup, ALockedKeyringIsWaitedForAndItsSessionComesBack) {
    begin({});
    auto& first = start();
    ASSERT_TRUE(logs(QStringLiteral("User data stored")));
    m_session->end(first);
    m_session->lockKeyring();
    start();
    EXPECT_TRUE(logs(QStringLiteral("The keyring of this desktop is locked")));
    ASSERT_TRUE(waitUntil([&] { return log().count(QStringLiteral("Anonymous session created")) == 2; }))
        << "nobody to dictate as";
    EXPECT_FALSE(m_session
                     ->run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                       QStringLiteral("--class"), QStringLiteral("gcr-prompter")})
                     .contains(QRegularExpression(QStringLiteral("^\\d+"))))
        << "asks for a password by itself";
    EXPECT_FALSE(QFile::exists(m_session->path(QStringLiteral("home/.local/share/quillo/secrets.json"))));
    m_session->unlockKeyring();
    EXPECT_TRUE(logs(QStringLiteral("The keyring was unlocked")));
    EXPECT_TRUE(logs(QStringLiteral("User data restored from storage")));
}

TEST_F(Startup, WithoutASoundServerItStartsAndDictatesOnceThereIsOne) {
    begin({.sound = false});
    chooseLanguage();
    start();
    EXPECT_TRUE(logs(QStringLiteral("No sound server")));
    m_session->pressKey(DesktopSession::rightSuper);
    EXPECT_TRUE(waitUntil([&] {
        return m_session->status().value(QStringLiteral("message")).toString().contains(QStringLiteral("sound server"));
    }));
    m_session->releaseKey(DesktopSession::rightSuper);
    m_session->startSound();
    EXPECT_TRUE(logs(QStringLiteral("The sound server is back")));
    EXPECT_TRUE(dictates());
}

TEST_F(Startup, AReadOnlyHomeIsNoReasonNotToDictate) {
    begin({});
    chooseLanguage();
    // A mount of the program's own; to its owner, root, mere permissions would be no hindrance.
    const QStringList readOnly{
        QStringLiteral("unshare"),
        QStringLiteral("-m"),
        QStringLiteral("sh"),
        QStringLiteral("-c"),
        QStringLiteral("mount --bind \"$HOME\" \"$HOME\" && mount -o remount,ro,bind \"$HOME\" && exec \"$@\""),
        QStringLiteral("sh")};
    start(readOnly);
    const auto prints = [this](const QString& words) {
        QFile output(m_session->path(QStringLiteral("quillo.log")));
        return output.open(QIODevice::ReadOnly) && QString::fromUtf8(output.readAll()).contains(words);
    };
    EXPECT_TRUE(prints(QStringLiteral("cannot be written. Until you log out")));
    ASSERT_TRUE(waitUntil([&] { return prints(QStringLiteral("Anonymous session created")); }));
    EXPECT_TRUE(
        dictates([&] { return m_session->status().value(QStringLiteral("status")).toString() == u"recording"; }));
    // What was said is kept as long as the session.
    const auto list = readOnly.mid(1) + QStringList{QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo"),
                                                    QStringLiteral("history"), QStringLiteral("list")};
    EXPECT_TRUE(waitUntil([&] { return m_session->run(readOnly.front(), list).contains(said); }));
}

TEST_F(Startup, ABrokenHistoryIsPutAsideAndSaidSo) {
    begin({});
    chooseLanguage();
    const auto folder = m_session->path(QStringLiteral("home/.local/share/Quillo"));
    QDir().mkpath(folder);
    QFile store(folder + QStringLiteral("/quillo.store"));
    ASSERT_TRUE(store.open(QIODevice::WriteOnly));
    store.write(QByteArray("SQLite format 3\0 and then nonsense", 34).repeated(300));
    store.close();
    start();
    EXPECT_TRUE(dictates());
    EXPECT_GT(QDir(folder).entryList({QStringLiteral("quillo.store*damaged*")}).size() +
                  QDir(folder).entryList({QStringLiteral("*corrupt*")}).size(),
              0)
        << QDir(folder).entryList().join(u' ').toStdString();
    ASSERT_TRUE(waitUntil([&] {
        return m_session->quillo({QStringLiteral("history"), QStringLiteral("list")}).contains(said);
    })) << "the new history keeps nothing";
}

TEST_F(Startup, ASecondInstanceShowsTheFirstAndEnds) {
    begin({});
    auto& first = start();
    int code = -1;
    EXPECT_TRUE(m_session->quillo({}, &code).contains(QStringLiteral("running already")));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(waitUntil(
        [&] {
            return m_session
                ->run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                  QStringLiteral("--name"), QStringLiteral("Quillo")})
                .contains(QRegularExpression(QStringLiteral("\\d+")));
        },
        10s))
        << "nothing was brought to the front";
    EXPECT_EQ(first.state(), QProcess::Running);
    // A URL that answers no sign-in is handed over and changes nothing.
    m_session->quillo({QStringLiteral("quillo://auth/callback?code=forged&state=forged")}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(log().contains(QStringLiteral("Exchanging authorization code")));
}

TEST_F(Startup, OnMockServicesTheInterfaceRunsWithNothingBehindIt) {
    begin({.sound = false});
    m_session->environment().insert(QStringLiteral("USE_MOCK_SERVICES"), QStringLiteral("1"));
    m_session->environment().insert(QStringLiteral("HOME"), m_session->path(QStringLiteral("home")));
    auto& process = m_session->launch(QStringLiteral("quillo"), QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo"), {});
    ASSERT_TRUE(waitUntil(
        [&] {
            int code = 0;
            m_session->quillo({QStringLiteral("status")}, &code);
            return code == 0;
        },
        20s));
    m_session->quillo(
        {QStringLiteral("settings"), QStringLiteral("set"), QStringLiteral("primaryLanguage"), QStringLiteral("en")});
    m_session->quillo({QStringLiteral("start")});
    ASSERT_TRUE(m_session->waitForStatus(QStringLiteral("recording")));
    ASSERT_TRUE(
        waitUntil([&] { return m_session->status().value(QStringLiteral("partialText")).toString().size() > 10; }));
    m_session->quillo({QStringLiteral("stop")});
    ASSERT_TRUE(m_session->waitForStatus(QStringLiteral("idle")));
    EXPECT_TRUE(m_session->status()
                    .value(QStringLiteral("lastRun"))
                    .toObject()
                    .value(QStringLiteral("text"))
                    .toString()
                    .startsWith(QStringLiteral("The quick")));
    m_session->quillo({QStringLiteral("sign-in")});
    EXPECT_TRUE(waitUntil(
        [&] { return m_session->quillo({QStringLiteral("account")}).contains(QStringLiteral("Ada Lovelace")); }));
    EXPECT_FALSE(QFile::exists(m_session->path(QStringLiteral("home/.local/share/Quillo/quillo.store"))));
    EXPECT_EQ(process.state(), QProcess::Running);
}

TEST_F(Startup, WithoutServicesItRunsAndSaysWhy) {
    begin({});
    m_session->environment().insert(QStringLiteral("QUILLO_SERVER_HOST"), QStringLiteral("https://not.a.host/"));
    auto& process = start();
    EXPECT_TRUE(
        m_session->status().value(QStringLiteral("message")).toString().contains(QStringLiteral("not a server host")));
    int code = 0;
    EXPECT_TRUE(m_session->quillo({QStringLiteral("toggle")}, &code).contains(QStringLiteral("not a server host")));
    EXPECT_EQ(code, 1);
    m_session->quillo({QStringLiteral("quit")});
    EXPECT_TRUE(waitUntil([&] { return process.state() == QProcess::NotRunning; }));
}

TEST_F(Startup, ANewUserIsWelcomedOnceAndTheStartGoesInItsOrder) {
    begin({.newUser = true});
    m_session->environment().insert(QStringLiteral("QUILLO_SERVER_HOST"), QStringLiteral("127.0.0.1:9"));
    start();
    EXPECT_TRUE(waitUntil(
        [&] {
            return m_session
                ->run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                  QStringLiteral("--name"), QStringLiteral("Welcome to Quillo")})
                .contains(QRegularExpression(QStringLiteral("\\d+")));
        },
        10s));
    const QStringList order{QStringLiteral("🚀 Application launching..."),
                            QStringLiteral("✅ Using shared ModelContainer"),
                            QStringLiteral("✅ Basic status item created in menu bar"),
                            QStringLiteral("✅ Quillo launched, basic menu bar ready"),
                            QStringLiteral("Server host: 127.0.0.1:9"),
                            QStringLiteral("WebSocket endpoint: ws://127.0.0.1:9/ws/v3/transcribe"),
                            QStringLiteral("Services initialized via ServiceContainer"),
                            QStringLiteral("fresh install, will use Right ⌘"),
                            QStringLiteral("Starting hotkey service"),
                            QStringLiteral("Checking for existing session"),
                            QStringLiteral("Session fallback: anonymous auth failed")};
    ASSERT_TRUE(logs(order.constLast()));
    qsizetype at = 0;
    for (const auto& line : order) {
        const auto found = log().indexOf(line, at);
        EXPECT_GE(found, 0) << line.toStdString() << " is missing, or out of its order";
        at = std::max(at, found);
    }
}

} // namespace
