// Figures of the start and of doing nothing, in a real session on a virtual display: how soon after the start of the
// process the hotkeys are armed, and what an idle application costs in memory and wake-ups.
//
// usage: StartFigures [STARTS] [IDLE SECONDS]

#include "DesktopSession.h"
#include "Support/Async.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <map>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

QString contentOf(const QString& name) {
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// When `line` was last logged; the log's clock is that of this process.
std::optional<QDateTime> loggedAt(const DesktopSession& session, const QString& line) {
    const auto lines = contentOf(session.logFile()).split(u'\n');
    for (auto entry = lines.rbegin(); entry != lines.rend(); ++entry)
        if (entry->contains(line)) {
            static const QRegularExpression stamp(
                QStringLiteral("\\d{4}-\\d\\d-\\d\\d[ T]\\d\\d:\\d\\d:\\d\\d\\.\\d{3}"));
            return QDateTime::fromString(stamp.match(*entry).captured().replace(u' ', u'T'), Qt::ISODateWithMs);
        }
    return std::nullopt;
}

double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(std::lround(part * static_cast<double>(values.size() - 1)))];
}

void printStarts(QTextStream& out, DesktopSession& session, int starts) {
    std::vector<double> armed;
    std::vector<double> launched;
    for (int i = 0; i < starts; ++i) {
        QFile::remove(session.logFile());
        const auto begun = QDateTime::currentDateTime();
        auto& process = session.startQuillo();
        const auto hotkeys = loggedAt(session, QStringLiteral("CGEventTap installed and enabled"));
        const auto done = loggedAt(session, QStringLiteral("Network monitor started"));
        if (!hotkeys || !done)
            throw DesktopSessionError(QStringLiteral("the log does not tell when the hotkeys were armed"));
        armed.push_back(static_cast<double>(begun.msecsTo(*hotkeys)));
        launched.push_back(static_cast<double>(begun.msecsTo(*done)));
        session.quillo({QStringLiteral("quit")});
        waitUntil([&] { return process.state() == QProcess::NotRunning; }, 10s);
    }
    out << QStringLiteral("start to armed hotkeys    median %1 ms, worst %2 ms (budget 300 ms), %3 starts\n")
               .arg(percentile(armed, 0.5))
               .arg(percentile(armed, 1))
               .arg(starts);
    out << QStringLiteral("start to the end of launch  median %1 ms, worst %2 ms\n")
               .arg(percentile(launched, 0.5))
               .arg(percentile(launched, 1));
}

/// How often each thread of a process has gone to sleep on its own, which is how often it was woken.
std::map<QString, long> wakeUps(qint64 pid) {
    std::map<QString, long> counts;
    const auto folder = QStringLiteral("/proc/%1/task").arg(pid);
    for (const auto& thread : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        static const QRegularExpression count(QStringLiteral("\nvoluntary_ctxt_switches:\\s*(\\d+)"));
        counts[thread] =
            count.match(contentOf(folder + u'/' + thread + QStringLiteral("/status"))).captured(1).toLong();
    }
    return counts;
}

/// How often the threads that live now were woken since then.
long wakeUpsSince(const std::map<QString, long>& before, qint64 pid) {
    long sum = 0;
    for (const auto& [thread, count] : wakeUps(pid))
        sum += count - (before.contains(thread) ? before.at(thread) : 0);
    return sum;
}

double megabytes(qint64 pid, const QString& field) {
    const QRegularExpression line(u'\n' + field + QStringLiteral(":\\s*(\\d+) kB"));
    return line.match(u'\n' + contentOf(QStringLiteral("/proc/%1/smaps_rollup").arg(pid))).captured(1).toDouble() /
           1024;
}

void printIdle(QTextStream& out, DesktopSession& session, int seconds) {
    const auto& process = session.startQuillo();
    const auto pid = process.processId();
    // The start is complete when nothing wakes the process for a while.
    auto before = wakeUps(pid);
    auto settledAt = monotonicNow();
    waitUntil(
        [&] {
            if (wakeUpsSince(before, pid) > 5)
                settledAt = monotonicNow();
            before = wakeUps(pid);
            return monotonicNow() - settledAt > 8s;
        },
        60s);
    const auto start = wakeUps(pid);
    const auto until = monotonicNow() + std::chrono::seconds(seconds);
    waitUntil([&] { return monotonicNow() >= until; }, std::chrono::seconds(seconds + 5));
    out << QStringLiteral("idle for %1 s             %2 wake-ups; %3 MB resident (budget 60 MB), of it %4 MB its own, "
                          "%5 MB written to\n")
               .arg(seconds)
               .arg(wakeUpsSince(start, pid))
               .arg(megabytes(pid, QStringLiteral("Rss")), 0, 'f', 1)
               .arg(megabytes(pid, QStringLiteral("Pss")), 0, 'f', 1)
               .arg(megabytes(pid, QStringLiteral("Private_Dirty")), 0, 'f', 1);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const auto arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    try {
        DesktopSession session;
        printStarts(out, session, arguments.value(1, QStringLiteral("20")).toInt());
        out.flush();
        printIdle(out, session, arguments.value(2, QStringLiteral("60")).toInt());
    } catch (const DesktopSessionError& error) {
        QTextStream(stderr) << "StartFigures: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
