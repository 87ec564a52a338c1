#pragma once

#include "FaultProxy.h"
#include "FullDisk.h"
#include "Reference.h"

#include <chrono>
#include <memory>

namespace quillo::test {

/// A desktop session with a server behind a proxy and a microphone that is never silent. Every part can be killed and
/// restarted.
class CampaignSession {
public:
    /// `seed` determines the signal.
    explicit CampaignSession(uint64_t seed);
    ~CampaignSession();
    CampaignSession(const CampaignSession&) = delete;
    CampaignSession& operator=(const CampaignSession&) = delete;

    DesktopSession desktop;
    Reference reference{desktop};

    FaultProxy& proxy() { return *m_proxy; }
    FullDisk& disk() { return *m_disk; }

    /// Circumstances of a start.
    struct Start {
        bool movableClock = false; ///< the wall-clock time can be changed
        bool german = false;       ///< the language of the desktop
        bool slowKeyring = false;  ///< it answers only after `wakeKeyring`
        bool operator==(const Start&) const = default;
    };
    /// Starts the application for the first time, and with `account` signs in to one.
    void makeHome(bool account);
    [[nodiscard]] bool hasAccount() const { return m_hasAccount; }
    [[nodiscard]] bool isSignedIn() { return desktop.quillo({u"account"_qs}).startsWith(u"signed in as"); }
    void startApplication(Start start);
    [[nodiscard]] const Start& lastStart() const { return m_start; }
    [[nodiscard]] bool isGerman() const { return m_start.german; }
    void wakeKeyring();
    /// Returns where in the reference it was killed.
    int64_t killApplication();
    [[nodiscard]] bool isApplicationRunning() const;
    void endApplication();

    void startServer();
    void killServer();

    void killSoundServer();
    void startSoundServer();

    /// Returns where in the reference it was killed.
    int64_t killBus();
    /// Also starts the Secret Service, which ends with the bus.
    void startBus();

    /// Shifts the application's wall-clock time.
    void moveClock(std::chrono::seconds shift);

    /// The current end of the application's log, and whether a line after such a position matches.
    [[nodiscard]] qint64 logEnd() const;
    [[nodiscard]] bool isLogged(const QString& expression, qint64 since) const;

    /// Restarts the signal when it has ended.
    void keepSounding();
    [[nodiscard]] QString recordingFolder() const;

    /// The word that the scripted server recognises as word `number` of a recording, counted from 0; and the words per
    /// second.
    static QString word(int number);
    static constexpr int wordsPerSecond = 10;
    static constexpr int differentWords = 100;

private:
    QString writeScript();
    void suspendKeyring();
    void play();

    quint16 m_serverPort = 0;
    std::unique_ptr<FaultProxy> m_proxy;
    std::unique_ptr<FullDisk> m_disk;
    QProcess* m_application = nullptr;
    QProcess* m_server = nullptr;
    QProcess* m_player = nullptr;
    std::unique_ptr<QProcess> m_keyring;
    Start m_start;
    bool m_hasAccount = false;
    pid_t m_sleepingKeyring = 0;
};

} // namespace quillo::test
