#include "Platform/Linux/Session/LogindSessionWatch.h"
#include "Platform/Session/ScriptedLogind.h"
#include "Support/Async.h"

#include <QDBusMessage>
#include <QProcess>

#include <gtest/gtest.h>

#include <stdexcept>

namespace quillo::test {
namespace {

/// A bus of its own, which plays the system's and the session's.
class Bus {
public:
    Bus() {
        m_process.start(u"dbus-daemon"_qs, {u"--session"_qs, u"--nofork"_qs, u"--print-address=1"_qs});
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(15'000))
                throw std::runtime_error("no answer from dbus-daemon");
        }
        m_address = QString::fromUtf8(m_process.readLine().trimmed());
    }
    ~Bus() {
        m_process.kill();
        m_process.waitForFinished();
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    [[nodiscard]] QDBusConnection connect(const QString& name) const {
        return QDBusConnection::connectToBus(m_address, name);
    }

private:
    QProcess m_process;
    QString m_address;
};

class SessionWatchTest : public testing::Test {
protected:
    SessionWatchTest() {
        QDBusConnection desktop = m_bus.connect(u"desktop"_qs);
        const auto exported = QDBusConnection::ExportAllContents;
        desktop.registerObject(u"/org/freedesktop/login1"_qs, &m_manager, exported);
        desktop.registerObject(QLatin1String(sessionPath), &m_session, exported);
        desktop.registerService(u"org.freedesktop.login1"_qs);
    }
    ~SessionWatchTest() override {
        m_watch.reset();
        for (const char* name : {"desktop", "ours"})
            QDBusConnection::disconnectFromBus(QLatin1String(name));
    }

    void start() {
        const auto ours = m_bus.connect(u"ours"_qs);
        m_watch = createLogindSessionWatch(ours, ours);
        m_watch->start([this] { ++m_left; });
        // The watch knows its session once the session reaches it.
        ASSERT_TRUE(waitUntil([this] {
            change("LockedHint", true);
            return m_watch->isAway();
        }));
        change("LockedHint", false);
        ASSERT_TRUE(waitUntil([this] { return !m_watch->isAway(); }));
        m_left = 0;
    }
    void send(const QString& path, const QString& interface, const QString& name, const QVariantList& arguments) {
        auto signal = QDBusMessage::createSignal(path, interface, name);
        signal.setArguments(arguments);
        m_bus.connect(u"desktop"_qs).send(signal);
    }
    void change(const char* property, bool value, const QString& path = QLatin1String(sessionPath)) {
        send(path, u"org.freedesktop.DBus.Properties"_qs, u"PropertiesChanged"_qs,
             {u"org.freedesktop.login1.Session"_qs, QVariantMap{{QLatin1String(property), value}}, QStringList()});
    }
    /// Sends something that counts, so that everything before it has arrived too, and does not count it.
    int leftBefore() {
        const int before = m_left;
        Q_EMIT m_session.Lock();
        EXPECT_TRUE(waitUntil([&] { return m_left > before; }));
        return m_left - 1;
    }

    Bus m_bus;
    ScriptedManager m_manager;
    ScriptedLoginSession m_session;
    int m_left = 0;
    std::unique_ptr<SessionWatch> m_watch;
};

TEST_F(SessionWatchTest, ReportsEveryWayToLeave) {
    start();
    struct {
        const char* name;
        std::function<void()> leave;
        std::function<void()> comeBack;
        bool isAway;
    } const ways[] = {
        {"lock", [this] { Q_EMIT m_session.Lock(); }, [] {}, false},
        {"locked", [this] { change("LockedHint", true); }, [this] { change("LockedHint", false); }, true},
        {"switched", [this] { change("Active", false); }, [this] { change("Active", true); }, true},
        {"sleep", [this] { Q_EMIT m_manager.PrepareForSleep(true); },
         [this] { Q_EMIT m_manager.PrepareForSleep(false); }, false},
        {"screen saver",
         [this] { send(u"/ScreenSaver"_qs, u"org.freedesktop.ScreenSaver"_qs, u"ActiveChanged"_qs, {true}); },
         [this] { send(u"/org/gnome/ScreenSaver"_qs, u"org.gnome.ScreenSaver"_qs, u"ActiveChanged"_qs, {false}); },
         false},
    };
    for (const auto& [name, leave, comeBack, isAway] : ways) {
        const int before = m_left;
        leave();
        EXPECT_TRUE(waitUntil([&] { return m_left == before + 1; })) << name;
        EXPECT_EQ(m_watch->isAway(), isAway) << name;
        comeBack();
        EXPECT_EQ(leftBefore(), before + 1) << name;
        EXPECT_FALSE(m_watch->isAway()) << name;
    }
}

TEST_F(SessionWatchTest, SleepWaitsExactlyWhileItIsAskedTo) {
    start();
    for (int round = 0; round < 2; ++round) {
        m_watch->delaySleep(true);
        m_watch->delaySleep(true);
        EXPECT_TRUE(waitUntil([this] { return m_manager.delays() == 1; }));
        m_watch->delaySleep(false);
        EXPECT_TRUE(waitUntil([this] { return m_manager.delays() == 0; }));
    }
    m_watch->delaySleep(true);
    m_watch->delaySleep(false); // before the answer
    EXPECT_TRUE(waitUntil([this] { return m_manager.m_delays.size() == 3 && m_manager.delays() == 0; }));
}

TEST_F(SessionWatchTest, AnotherSessionIsNotOurs) {
    start();
    change("LockedHint", true, u"/org/freedesktop/login1/session/_33"_qs);
    EXPECT_EQ(leftBefore(), 0);
    EXPECT_FALSE(m_watch->isAway());
}

TEST_F(SessionWatchTest, KnowsASessionThatIsLockedAlready) {
    m_session.m_isLocked = true;
    const auto ours = m_bus.connect(u"ours"_qs);
    m_watch = createLogindSessionWatch(ours, ours);
    m_watch->start([this] { ++m_left; });
    EXPECT_TRUE(waitUntil([this] { return m_watch->isAway(); }));
}

} // namespace
} // namespace quillo::test
