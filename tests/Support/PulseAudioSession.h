#pragma once

#include "Support/ChildProcess.h"

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>
#include <vector>

namespace quillo::test {

/// A private PulseAudio server; the environment of this process points to it. Everything it started ends with it.
class PulseAudioSession {
public:
    /// Throws std::runtime_error when the server does not come up.
    PulseAudioSession();
    ~PulseAudioSession();
    PulseAudioSession(const PulseAudioSession&) = delete;
    PulseAudioSession& operator=(const PulseAudioSession&) = delete;

    /// Adds a source with this name and the description "The NAME", which is not a monitor and records what `speak`
    /// plays. It plays silence all the time, because an idle null sink sleeps for up to two seconds, unlike a
    /// microphone.
    void addMicrophone(const QString& name, int rate = 48000, int channels = 1);
    /// Unplugs it.
    void removeMicrophone(const QString& name);
    void setDefaultSource(const QString& name);
    /// Plays 16-bit samples into the microphone, on both channels of two and on the first of more; the process ends
    /// when all are played.
    std::unique_ptr<ChildProcess> speak(const QString& name, const std::vector<int16_t>& samples);

    /// Kills the server with everything in it.
    void kill();
    /// Starts it again, empty.
    void start();
    /// Suspends the server's process, so that it hangs.
    void suspend();
    void resume();

    /// Runs pactl and returns what it printed; throws when it fails.
    QString pactl(const QStringList& arguments);

private:
    struct Microphone {
        QString name;
        int rate = 0;
        int channels = 0;
        QString module;
        std::unique_ptr<ChildProcess> silence;
    };
    [[nodiscard]] QStringList playback(const Microphone& microphone, const QString& format) const;
    Microphone& find(const QString& name);

    QTemporaryDir m_folder;
    QString m_socket;
    std::unique_ptr<ChildProcess> m_server;
    std::vector<Microphone> m_microphones;
};

} // namespace quillo::test
