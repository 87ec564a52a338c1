#pragma once

#include "FaultProxy.h"
#include "FullDisk.h"
#include "Reference.h"

#include <chrono>
#include <memory>
#include <optional>

namespace quillo::test {

/// A desktop session with a server behind a proxy and a microphone that never falls silent, every part of which can be
/// killed and brought back.
class CampaignSession {
public:
    /// The signal is `seed`'s.
    explicit CampaignSession(uint64_t seed);
    ~CampaignSession();
    CampaignSession(const CampaignSession&) = delete;
    CampaignSession& operator=(const CampaignSession&) = delete;

    DesktopSession desktop;
    Reference reference{desktop};

    FaultProxy& proxy() { return *m_proxy; }
    FullDisk& disk() { return *m_disk; }

    /// Starts the application; with a `movable` clock its time of day can be moved.
    void startApplication(bool movableClock = false);
    /// Returns where in the reference it was killed.
    int64_t killApplication();
    [[nodiscard]] bool isApplicationRunning() const;
    [[nodiscard]] bool hasMovableClock() const { return m_hasMovableClock; }
    void endApplication();

    void startServer();
    void killServer();

    void killSoundServer();
    void startSoundServer();

    /// Returns where in the reference it was killed.
    int64_t killBus();
    /// With the Secret Service, which ends with the bus.
    void startBus();

    /// Moves the application's time of day.
    void moveClock(std::chrono::seconds shift);

    /// Where the application's log ends now, and whether a line behind such a place matches.
    [[nodiscard]] qint64 logEnd() const;
    [[nodiscard]] bool isLogged(const QString& expression, qint64 since) const;

    /// Lets the signal go on that has come to its end.
    void keepSounding();
    [[nodiscard]] QString recordingFolder() const;

    /// The word that the scripted server hears as word `number` of a recording, from 0; so many a second.
    static QString word(int number);
    static constexpr int wordsPerSecond = 10;
    static constexpr int differentWords = 100;

private:
    QString writeScript();
    void play();

    uint64_t m_seed;
    quint16 m_serverPort = 0;
    std::unique_ptr<FaultProxy> m_proxy;
    std::unique_ptr<FullDisk> m_disk;
    QProcess* m_application = nullptr;
    QProcess* m_server = nullptr;
    QProcess* m_player = nullptr;
    std::unique_ptr<QProcess> m_keyring;
    bool m_hasMovableClock = false;
};

} // namespace quillo::test
