#pragma once

#include "Support/PhysicalKeyboard.h"

#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

namespace quillo::test {

/// A part of the session did not come up; the message names it and its log.
class DesktopSessionError : public std::runtime_error {
public:
    explicit DesktopSessionError(const QString& message) : std::runtime_error(message.toStdString()) {}
};

/// A private desktop on a virtual display with everything real in it: X server, window manager, session bus, sound
/// server with a virtual microphone, Secret Service. The application, a text field and the command line run in it. All
/// of it ends with the object; a session that is `kept` leaves its folder of logs behind.
class DesktopSession {
public:
    enum class Secrets { unlocked, none };
    struct Options {
        bool compositor = false; ///< for transparent windows in a picture
        Secrets secrets = Secrets::unlocked;
        bool sessionBus = true; ///< the Secret Service needs it
        bool sound = true;
        bool newUser = false;       ///< who is welcomed at the first start
        int microphoneRate = 48000; ///< Hz
        QStringList displayOptions; ///< further options of the X server
    };

    DesktopSession() : DesktopSession(Options{}) {}
    explicit DesktopSession(Options options);
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    [[nodiscard]] QString folder() const { return m_folder.path(); }
    [[nodiscard]] QString path(const QString& name) const { return m_folder.filePath(name); }
    QProcessEnvironment& environment() { return m_environment; }
    void keepFolder() { m_folder.setAutoRemove(false); }
    /// For a failed test: keeps the folder with a picture of the screen in it, and prints where it is. Comes without
    /// being asked for where the session ends with the test.
    void explainFailure();

    /// Starts `program` in the session; its output goes to NAME.log in the folder. It is ended with the session.
    QProcess& launch(const QString& name, const QString& program, const QStringList& arguments);
    /// Runs `program` to its end; returns its output. Throws on a failure to run, not on its exit code.
    QString run(const QString& program, const QStringList& arguments, int* exitCode = nullptr);
    QString shell(const QString& command) { return run(u"sh"_qs, {u"-c"_qs, command}); }
    void end(QProcess& process);

    /// From its next start on, the application's own server hears `words`, whatever is said.
    void recognise(const QString& words);
    /// Starts the application, through `wrapper` if there is one, with `settings` (key, value), and waits until it
    /// answers; without a session bus, until its log says that it is up.
    QProcess& startQuillo(const std::vector<std::pair<QString, QString>>& settings = {},
                          const QStringList& wrapper = {});
    /// The application's command line.
    QString quillo(const QStringList& arguments, int* exitCode = nullptr);
    QJsonObject status();
    /// A text of the status, and the report on the last dictation.
    QString status(const char* key) { return status().value(QLatin1String(key)).toString(); }
    QJsonObject lastRun() { return status().value(u"lastRun"_qs).toObject(); }
    /// Waits until the application's status word is `word`.
    bool waitForStatus(const QString& word, std::chrono::milliseconds watchdog = std::chrono::seconds(20));
    [[nodiscard]] QString logFile() const;
    /// How often `words` occur in the log.
    [[nodiscard]] int logged(const QString& words) const;

    /// Opens the plain text editor and waits until it has the focus; what it holds is reported to `textFile()`.
    QProcess& openTextField(const QStringList& arguments = {});
    struct FieldReport {
        QString text;
        std::chrono::nanoseconds monotonic{}; ///< of the latest change
    };
    [[nodiscard]] FieldReport fieldReport() const;

    /// Presses or releases a key as a keyboard would; `keycode` is the X server's (evdev + 8). Returns the moment.
    std::chrono::nanoseconds pressKey(int keycode) { return sendKey(keycode, true); }
    std::chrono::nanoseconds releaseKey(int keycode) { return sendKey(keycode, false); }

    /// Synthesizes `sentence` into a file, once per sentence and voice.
    QString synthesize(const QString& sentence, const QString& voice = u"rms"_qs);
    /// Speaks a file into the microphone, to its end.
    void play(const QString& waveFile);

    void lockKeyring();
    void unlockKeyring();

    /// The session begins with sound; these take it away and give it back.
    void stopSound();
    void startSound();

    void screenshot(const QString& file);

    static constexpr int rightSuper = 134;

private:
    void startDisplay();
    void startBus();
    QString busWithoutSecrets();
    void startWindowManager();
    void startSecretService();
    void writePreferences();
    QProcess& launchAndWaitForFile(const QString& name, const QString& program, const QStringList& arguments,
                                   const QString& file);
    std::chrono::nanoseconds sendKey(int keycode, bool press);

    Options m_options;
    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
    std::vector<std::unique_ptr<QProcess>> m_processes;
    std::unique_ptr<PhysicalKeyboard> m_keyboard;
    std::vector<QProcess*> m_sound; ///< among m_processes
    QString m_fieldReportFile;
};

/// The clock that all processes of the machine share.
std::chrono::nanoseconds monotonicNow();

} // namespace quillo::test
