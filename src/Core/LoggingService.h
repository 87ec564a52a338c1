#pragma once

#include "Core/Log.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <atomic>
#include <mutex>
#include <optional>

namespace quillo {

/// `text` with every access token removed: "token=<redacted>" for named ones, "<redacted>" for anything that looks like
/// a signed token (three base64url groups, the first beginning with "eyJ").
[[nodiscard]] QString redactSecrets(const QString& text);

/// From now on the messages of Qt and QML go to the log too. Main thread, once.
void logQtMessages();

/// The one logger of the process: log file, console and journal. Every function may be called from any thread.
///
/// Without a file (before `open`, or when it cannot be opened) lines go only to the console and the journal.
class LoggingService {
public:
    /// One log call in its forms, each a single line without its line end.
    struct Renderings {
        QByteArray file;     ///< "[time] [LEVEL] [category] message"
        QByteArray detailed; ///< the same with source file, line and function before the message
        QByteArray console;  ///< led by the level's emoji
        QByteArray journal;  ///< "[category] message": the journal keeps time and level itself
    };

    static constexpr qint64 largestFile = 5'000'000;    ///< bytes; beyond it the file is cut
    static constexpr qint64 keptByRotation = 2'000'000; ///< bytes

    static LoggingService& shared();
    /// "quillo-speech.log" in the folder QuilloSpeech of the user's state folder; in Qt's test mode, which mock
    /// services use, in the state folder of that.
    static QString defaultPath();

    /// `journalSocket` is the socket of the journal; nothing is sent if it does not exist.
    explicit LoggingService(const QString& journalSocket = QStringLiteral("/run/systemd/journal/socket"));
    ~LoggingService();
    LoggingService(const LoggingService&) = delete;
    LoggingService& operator=(const LoggingService&) = delete;

    /// Appends to the file at `path` from now on, readable by the owner alone, and begins the run with a banner. False
    /// when it cannot be opened; the reason is logged to the console.
    bool open(const QString& path = defaultPath());
    /// Lines below `level` are not written to the console; nullopt silences the console. The file has every line.
    void setConsoleLevel(std::optional<LogLevel> level);
    /// The open log file; empty without one.
    [[nodiscard]] QString path() const;

    void log(const QString& message, LogLevel level, const QString& category, const std::source_location& where);

    /// Puts "<deleted>" wherever the file holds this dictation. The file stays as it is when it cannot be rewritten.
    void forget(const QString& dictation);

    /// Redacts tokens, keeps the message on one line and makes control characters visible.
    static Renderings render(const QString& message, LogLevel level, const QString& category,
                             const std::source_location& where, const QDateTime& time);

private:
    void sendToJournal(const Renderings& lines, LogLevel level, const QString& category,
                       const std::source_location& where) const;
    bool openLocked(const QString& path);
    /// Creates the file again when it was removed.
    void reopenIfRemovedLocked();
    void writeLocked(const QByteArray& line);
    void rotateLocked();
    /// Replaces the content of the file; false, with the file unchanged, when that fails.
    bool replaceLocked(const QByteArray& content);

    QByteArray m_journalPath;
    int m_journal = -1;
    std::atomic<int> m_consoleLevel = 0;
    mutable std::mutex m_mutex;
    int m_file = -1;
    qint64 m_size = 0;
    QString m_path;
};

} // namespace quillo
