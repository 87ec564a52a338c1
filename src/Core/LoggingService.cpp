#include "Core/LoggingService.h"

#include "Core/PrivateFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillo {
namespace {

struct LevelWords {
    const char* name;
    const char* emoji;
    int priority; // syslog priority, for the journal
};
constexpr std::array<LevelWords, 4> levelWords{{
    {"DEBUG", "🔍", 7},
    {"INFO", "ℹ️", 6},
    {"WARN", "⚠️", 4},
    {"ERROR", "❌", 3},
}};

const LevelWords& wordsOf(LogLevel level) { return levelWords.at(static_cast<size_t>(level)); }

/// A full disk loses the line, never the dictation.
void writeAll(int descriptor, const QByteArray& bytes) {
    qint64 written = 0;
    privateFile::writeAll(descriptor, bytes.constData(), bytes.size(), written);
}

QByteArray fileName(const std::source_location& where) {
    const QByteArray path(where.file_name());
    return path.mid(path.lastIndexOf('/') + 1);
}

// "quillo::RecordingRun::start" of "Task<> quillo::RecordingRun::start(QString)"
QByteArray functionName(const std::source_location& where) {
    QByteArray name(where.function_name());
    name.replace("(anonymous namespace)::", "");
    const auto open = name.indexOf('(');
    if (open > 0)
        name.truncate(open);
    return name.mid(name.lastIndexOf(' ') + 1);
}

void appendField(QByteArray& datagram, const char* name, const QByteArray& value) {
    datagram.append(name).append('=').append(value).append('\n');
}

} // namespace

QString redactSecrets(const QString& text) {
    static const QRegularExpression signedToken(
        QStringLiteral(R"(eyJ[A-Za-z0-9_\-]{10,}\.[A-Za-z0-9_\-]{10,}\.[A-Za-z0-9_\-]{10,})"));
    static const QRegularExpression namedToken(QStringLiteral(R"(token=(?!<redacted>)[^\s&"',;)\]}]+)"),
                                               QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression bearer(QStringLiteral(R"((Bearer\s+)(?!<redacted>)[A-Za-z0-9._~+/\-]{8,}=*)"),
                                           QRegularExpression::CaseInsensitiveOption);
    QString result = text;
    // Nearly every line contains none of the three, and a plain search is far cheaper than the expressions.
    if (result.contains(QLatin1String("token="), Qt::CaseInsensitive))
        result.replace(namedToken, QStringLiteral("token=<redacted>"));
    if (result.contains(QLatin1String("bearer"), Qt::CaseInsensitive))
        result.replace(bearer, QStringLiteral("\\1<redacted>"));
    if (result.contains(QLatin1String("eyJ")))
        result.replace(signedToken, QStringLiteral("<redacted>"));
    return result;
}

LoggingService& LoggingService::shared() {
    // Never destroyed: static destructors and late threads may still log.
    static auto* const service = new LoggingService;
    return *service;
}

QString LoggingService::defaultPath() {
    // Qt 6.4 has no name for the state folder.
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (!state.startsWith(u'/'))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/QuilloSpeech/quillo-speech.log");
}

LoggingService::LoggingService(const QString& journalSocket) : m_journalPath(QFile::encodeName(journalSocket)) {
    if (QFile::exists(journalSocket))
        m_journal = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

LoggingService::~LoggingService() {
    if (m_file >= 0)
        ::close(m_file);
    if (m_journal >= 0)
        ::close(m_journal);
}

bool LoggingService::open(const QString& path) {
    const QFileInfo info(path);
    const QByteArray folder = QFile::encodeName(info.absolutePath());
    QString failure;
    if (!QDir().mkpath(info.absolutePath())) {
        failure = QStringLiteral("its folder cannot be made");
    } else {
        ::chmod(folder.constData(), 0700);
        const int file = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (file < 0) {
            failure = QString::fromLocal8Bit(std::strerror(errno));
        } else {
            ::fchmod(file, 0600);
            const std::lock_guard lock(m_mutex);
            if (m_file >= 0)
                ::close(m_file);
            m_file = file;
            m_path = path;
            struct stat status {};
            m_size = ::fstat(file, &status) == 0 ? status.st_size : 0;
            const QByteArray bar(60, '=');
            const auto started = QDateTime::currentDateTime().toString(u"yyyy-MM-dd HH:mm:ss.zzz").toUtf8();
            writeLocked(bar + "\nQuillo Log - Started at " + started + "\n" + bar + "\n");
        }
    }
    if (!failure.isEmpty()) {
        appLog(QStringLiteral("[LoggingService] ⚠️ Cannot open the log file %1: %2. Logging to the console only; make "
                              "the folder writable or set XDG_STATE_HOME")
                   .arg(path, failure),
               LogLevel::warn, QStringLiteral("LoggingService"));
        return false;
    }
    return true;
}

void LoggingService::setConsoleLevel(std::optional<LogLevel> level) {
    m_consoleLevel = level ? static_cast<int>(*level) : static_cast<int>(levelWords.size());
}

QString LoggingService::path() const {
    const std::lock_guard lock(m_mutex);
    return m_path;
}

LoggingService::Renderings LoggingService::render(const QString& message, LogLevel level, const QString& category,
                                                  const std::source_location& where, const QDateTime& time) {
    QString clean = redactSecrets(message);
    // Text from outside must not be able to forge a log line.
    clean.replace(u'\r', QLatin1String("\\r")).replace(u'\n', QLatin1String("\\n"));
    const QByteArray text = clean.toUtf8();
    const auto& words = wordsOf(level);
    const QByteArray head = "[" + time.toString(u"yyyy-MM-dd HH:mm:ss.zzz").toUtf8() + "] [" + words.name + "] [" +
                            category.toUtf8() + "] ";
    Renderings lines;
    lines.file = head + text;
    lines.detailed = head + "[" + fileName(where) + ":" + QByteArray::number(where.line()) + "] " +
                     functionName(where) + " - " + text;
    lines.console = QByteArray(words.emoji) + " " + lines.file;
    lines.journal = "[" + category.toUtf8() + "] " + text;
    return lines;
}

void LoggingService::log(const QString& message, LogLevel level, const QString& category,
                         const std::source_location& where) {
    const Renderings lines = render(message, level, category, where, QDateTime::currentDateTime());
    if (m_journal >= 0)
        sendToJournal(lines, level, category, where);
    const std::lock_guard lock(m_mutex);
    if (static_cast<int>(level) >= m_consoleLevel)
        writeAll(STDERR_FILENO, lines.console + "\n");
    if (m_file >= 0) {
        writeLocked(lines.file + "\n");
        if (m_size > largestFile)
            rotateLocked();
    }
}

void LoggingService::sendToJournal(const Renderings& lines, LogLevel level, const QString& category,
                                   const std::source_location& where) const {
    // The journal's native protocol, https://systemd.io/JOURNAL_NATIVE_PROTOCOL: one datagram of NAME=value lines.
    QByteArray datagram;
    appendField(datagram, "MESSAGE", lines.journal);
    appendField(datagram, "PRIORITY", QByteArray::number(wordsOf(level).priority));
    appendField(datagram, "SYSLOG_IDENTIFIER", "quillo");
    appendField(datagram, "QUILLO_SUBSYSTEM", "com.quillo-speech.logging");
    appendField(datagram, "QUILLO_CATEGORY", category.toUtf8());
    appendField(datagram, "CODE_FILE", fileName(where));
    appendField(datagram, "CODE_LINE", QByteArray::number(where.line()));
    appendField(datagram, "CODE_FUNC", functionName(where));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_journalPath.size() >= static_cast<qsizetype>(sizeof(address.sun_path)))
        return;
    std::memcpy(address.sun_path, m_journalPath.constData(), static_cast<size_t>(m_journalPath.size()));
    // If the journal is slow or gone, only its copy is lost; the file has the line.
    ::sendto(m_journal, datagram.constData(), static_cast<size_t>(datagram.size()), MSG_DONTWAIT | MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

void LoggingService::writeLocked(const QByteArray& line) {
    writeAll(m_file, line);
    m_size += line.size();
}

void LoggingService::rotateLocked() {
    QFile old(m_path);
    if (!old.open(QIODevice::ReadOnly) || old.size() <= keptByRotation) {
        // Another program has cut or removed the file.
        m_size = old.size();
        return;
    }
    const qint64 before = old.size();
    old.seek(before - keptByRotation);
    QByteArray kept = old.readAll();
    kept.remove(0, kept.indexOf('\n') + 1); // the first line is most likely incomplete
    const QByteArray path = QFile::encodeName(m_path);
    const QByteArray fresh = path + ".rotating";
    const int file = ::open(fresh.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0) {
        m_size = 0; // do not try again before another five million bytes
        return;
    }
    writeAll(file, kept);
    struct stat status {};
    // Only a complete copy may replace the old file.
    if (::fstat(file, &status) != 0 || status.st_size != kept.size() || ::rename(fresh.constData(), path.constData())) {
        ::close(file);
        ::unlink(fresh.constData());
        m_size = 0;
        return;
    }
    ::close(m_file);
    m_file = file;
    m_size = kept.size();
    const QString message = QStringLiteral("[LoggingService] Rotated: %1 bytes to %2").arg(before).arg(kept.size());
    writeLocked(render(message, LogLevel::info, QStringLiteral("LoggingService"), std::source_location::current(),
                       QDateTime::currentDateTime())
                    .file +
                "\n");
}

void appLog(const QString& message, LogLevel level, const QString& category, std::source_location where) {
    LoggingService::shared().log(message, level, category, where);
}

} // namespace quillo
