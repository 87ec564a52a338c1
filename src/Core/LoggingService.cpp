#include "Core/LoggingService.h"

#include "Core/DictatedText.h"
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

// Noncharacters of Unicode: no text that is exchanged holds them.
constexpr char16_t dictationBegins = 0xfdd0;
constexpr char16_t dictationEnds = 0xfdd1;

QString withoutMarks(QString text) { return text.remove(QChar(dictationBegins)).remove(QChar(dictationEnds)); }

QString withLengthsOnly(const QString& text) {
    QString result;
    for (qsizetype at = 0;;) {
        const auto begin = text.indexOf(QChar(dictationBegins), at);
        const auto end = begin < 0 ? -1 : text.indexOf(QChar(dictationEnds), begin);
        if (end < 0)
            return result + withoutMarks(text.mid(at));
        result += text.mid(at, begin - at) + QStringLiteral("<%1 characters>").arg(end - begin - 1);
        at = end + 1;
    }
}

/// Text from outside must not forge a log line, nor send commands to the terminal that shows it.
QString onOneLine(const QString& text) {
    QString result;
    result.reserve(text.size());
    for (const auto character : text) {
        if (character == u'\n')
            result += QLatin1String("\\n");
        else if (character == u'\r')
            result += QLatin1String("\\r");
        else if (character.category() == QChar::Other_Control && character != u'\t')
            result += QStringLiteral("\\x%1").arg(character.unicode(), 2, 16, QLatin1Char('0'));
        else
            result += character;
    }
    return result;
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
    if (QStandardPaths::isTestModeEnabled())
        state = QDir::homePath() + QStringLiteral("/.qttest/state");
    else if (!state.startsWith(u'/'))
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
    bool isOpen = false;
    int reason = 0;
    {
        const std::lock_guard lock(m_mutex);
        isOpen = openLocked(path);
        reason = errno;
    }
    if (!isOpen)
        appLog(QStringLiteral("[LoggingService] ⚠️ Cannot open the log file %1: %2. Logging to the console only; make "
                              "the folder writable or set XDG_STATE_HOME")
                   .arg(path, QString::fromLocal8Bit(std::strerror(reason))),
               LogLevel::warn, QStringLiteral("LoggingService"));
    return isOpen;
}

bool LoggingService::openLocked(const QString& path) {
    const auto folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) {
        errno = ENOTDIR;
        return false;
    }
    ::chmod(QFile::encodeName(folder).constData(), 0700);
    const int file = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0)
        return false;
    ::fchmod(file, 0600);
    if (m_file >= 0)
        ::close(m_file);
    m_file = file;
    m_path = path;
    struct stat status {};
    m_size = ::fstat(file, &status) == 0 ? status.st_size : 0;
    const QByteArray bar(60, '=');
    const auto started = QDateTime::currentDateTime().toString(u"yyyy-MM-dd HH:mm:ss.zzz").toUtf8();
    writeLocked(bar + "\nQuillo Log - Started at " + started + "\n" + bar + "\n");
    return true;
}

void LoggingService::reopenIfRemovedLocked() {
    struct stat status {};
    // If it cannot be created now, the open file without a name takes the lines.
    if (m_file >= 0 && ::fstat(m_file, &status) == 0 && status.st_nlink == 0)
        openLocked(QString(m_path));
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
    const QString clean = onOneLine(redactSecrets(message));
    const QByteArray text = withoutMarks(clean).toUtf8();
    const QByteArray publicText = withLengthsOnly(clean).toUtf8();
    const auto& words = wordsOf(level);
    const QByteArray head = "[" + time.toString(u"yyyy-MM-dd HH:mm:ss.zzz").toUtf8() + "] [" + words.name + "] [" +
                            category.toUtf8() + "] ";
    Renderings lines;
    lines.file = head + text;
    lines.detailed = head + "[" + fileName(where) + ":" + QByteArray::number(where.line()) + "] " +
                     functionName(where) + " - " + text;
    lines.console = QByteArray(words.emoji) + " " + head + publicText;
    lines.journal = "[" + category.toUtf8() + "] " + publicText;
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
    reopenIfRemovedLocked();
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

bool LoggingService::replaceLocked(const QByteArray& content) {
    const QByteArray path = QFile::encodeName(m_path);
    const QByteArray fresh = path + ".rotating";
    const int file = ::open(fresh.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0)
        return false;
    writeAll(file, content);
    struct stat status {};
    // Only a complete copy may replace the old file.
    if (::fstat(file, &status) != 0 || status.st_size != content.size() ||
        ::rename(fresh.constData(), path.constData())) {
        ::close(file);
        ::unlink(fresh.constData());
        return false;
    }
    ::close(m_file);
    m_file = file;
    m_size = content.size();
    return true;
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
    if (!replaceLocked(kept)) {
        m_size = 0; // not again before another five million bytes
        return;
    }
    const QString message = QStringLiteral("[LoggingService] Rotated: %1 bytes to %2").arg(before).arg(kept.size());
    writeLocked(render(message, LogLevel::info, QStringLiteral("LoggingService"), std::source_location::current(),
                       QDateTime::currentDateTime())
                    .file +
                "\n");
}

void LoggingService::forget(const QString& dictation) {
    const auto text = onOneLine(redactSecrets(dictation)).toUtf8();
    const std::lock_guard lock(m_mutex);
    QFile file(m_path);
    if (text.trimmed().isEmpty() || m_file < 0 || !file.open(QIODevice::ReadOnly))
        return;
    // A dictation is logged at the end of a line, after ": " or "]\\n". The same words elsewhere are something else.
    const auto before = file.readAll();
    auto content = before;
    for (const QByteArray lead : {": ", "]\\n"})
        content.replace(lead + text + "\n", lead + "<deleted>\n");
    if (content != before)
        replaceLocked(content);
}

QString dictated(const QString& text) { return QChar(dictationBegins) + withoutMarks(text) + QChar(dictationEnds); }

void forgetDictated(const QString& text) { LoggingService::shared().forget(text); }

void logQtMessages() {
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        const auto level = type == QtDebugMsg || type == QtInfoMsg ? LogLevel::debug
                           : type == QtWarningMsg                  ? LogLevel::warn
                                                                   : LogLevel::error;
        appLog(QStringLiteral("[Qt] ") + message, level, QStringLiteral("Qt"));
    });
}

void appLog(const QString& message, LogLevel level, const QString& category, std::source_location where) {
    LoggingService::shared().log(message, level, category, where);
}

} // namespace quillo
