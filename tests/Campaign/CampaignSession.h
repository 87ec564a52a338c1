#pragma once

#include "FaultProxy.h"
#include "FullDisk.h"
#include "Reference.h"

#include <chrono>
#include <memory>
#include <optional>

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

    /// Starts the application; with `movable` its wall-clock time can be changed.
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
    void play();

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
