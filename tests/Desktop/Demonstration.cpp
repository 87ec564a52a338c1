// Shows one dictation on a virtual desktop with nothing mocked: real speech into a real microphone of the sound server,
// a real key, the real server, a real text field. Run by ./run on a machine without a display.

#include "DesktopSession.h"
#include "Support/Async.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTextStream>

#include <optional>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

double milliseconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

/// What one dictation showed.
struct Shown {
    QString received;
    double pressToFirstSample = 0; ///< milliseconds
    double releaseToText = 0;      ///< milliseconds
    QJsonObject status;
};

Shown dictate(DesktopSession& session, const QString& sentence, const QString& pictureWhileSpeaking) {
    const auto before = session.fieldReport().text;
    const auto speech = session.synthesize(sentence);
    const auto pressed = session.pressKey(DesktopSession::rightSuper);
    if (!session.waitForStatus(QStringLiteral("recording")))
        throw DesktopSessionError(QStringLiteral("the recording did not start; its log is %1").arg(session.logFile()));
    session.play(speech);
    session.screenshot(pictureWhileSpeaking);
    const auto released = session.releaseKey(DesktopSession::rightSuper);
    waitUntil([&] { return session.fieldReport().text != before; }, 30s);
    session.waitForStatus(QStringLiteral("idle"));

    Shown shown;
    shown.status = session.status();
    const auto report = session.fieldReport();
    shown.received = report.text.mid(before.size());
    shown.releaseToText = milliseconds(report.monotonic - released);
    const auto firstSample = std::chrono::nanoseconds(shown.status.value(QStringLiteral("lastRun"))
                                                          .toObject()
                                                          .value(QStringLiteral("firstSampleMonotonicNs"))
                                                          .toInteger());
    shown.pressToFirstSample = milliseconds(firstSample - pressed);
    return shown;
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption pictures(QStringLiteral("pictures"), QStringLiteral("Folder for the screenshots."),
                                      QStringLiteral("folder"), QStringLiteral("build/demonstration"));
    const QCommandLineOption sentenceOption(
        QStringLiteral("sentence"), QStringLiteral("What to say."), QStringLiteral("text"),
        QStringLiteral("I think we should talk to the customer before we make a decision."));
    parser.addOptions({pictures, sentenceOption});
    parser.process(application);

    QTextStream out(stdout);
    const auto folder = QDir(parser.value(pictures)).absolutePath();
    QDir().mkpath(folder);
    const QString whileSpeaking = folder + QStringLiteral("/speaking.png");
    const QString afterwards = folder + QStringLiteral("/delivered.png");
    std::optional<DesktopSession> desktop;
    try {
        auto& session = desktop.emplace(DesktopSession::Options{.compositor = true});
        out << "A virtual desktop is up; starting Quillo in it...\n" << Qt::flush;
        session.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")}});
        session.openTextField();
        const auto sentence = parser.value(sentenceOption);
        out << "Holding Right Super and speaking...\n" << Qt::flush;
        const auto shown = dictate(session, sentence, whileSpeaking);
        session.screenshot(afterwards);
        session.quillo({QStringLiteral("quit")});
        QFile::remove(folder + QStringLiteral("/quillo.log"));
        QFile::copy(session.logFile(), folder + QStringLiteral("/quillo.log"));

        const bool delivered = !shown.received.trimmed().isEmpty();
        out << "\n  spoken                          " << sentence << "\n  received by the text field      "
            << shown.received.trimmed() << "\n  key press to first sample       "
            << QString::number(shown.pressToFirstSample, 'f', 1) << " ms\n  key release to text             "
            << QString::number(shown.releaseToText, 'f', 1)
            << " ms  (150 ms of it wait for a second tap of the key)\n  screenshot while speaking       "
            << whileSpeaking << "\n  screenshot afterwards           " << afterwards << "\n\n";
        if (!delivered) {
            session.keepFolder();
            out << "No text arrived. The logs are in " << session.folder() << "\n"
                << QJsonDocument(shown.status).toJson();
            return 1;
        }
        out << "On a machine with a desktop the same command opens Quillo in your session.\n";
        return 0;
    } catch (const std::exception& error) {
        QTextStream(stderr) << "The demonstration failed: " << QString::fromUtf8(error.what()) << "\n";
        if (desktop) {
            desktop->keepFolder();
            QTextStream(stderr) << "The logs are in " << desktop->folder() << "\n";
        }
        return 1;
    }
}
