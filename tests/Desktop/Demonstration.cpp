// Shows one dictation on a virtual desktop with nothing mocked: real speech into a real microphone of the sound server,
// a real key, the real server, a real text field. Run by ./run on a machine without a display.

#include "DesktopSession.h"
#include "Support/Async.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
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
    // Sooner after the last release it would be a double tap.
    static std::chrono::nanoseconds lastRelease{};
    waitUntil([&] { return monotonicNow() - lastRelease > 400ms; });
    const auto pressed = session.pressKey(DesktopSession::rightSuper);
    if (!session.waitForStatus(QStringLiteral("recording")))
        throw DesktopSessionError(QStringLiteral("the recording did not start; its log is %1").arg(session.logFile()));
    session.play(speech);
    session.screenshot(pictureWhileSpeaking);
    const auto released = lastRelease = session.releaseKey(DesktopSession::rightSuper);
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

/// Says `sentence` while the server is stopped; true when its text is in the history some time after the server goes
/// on, with nothing pressed.
bool dictateThroughAnOutage(DesktopSession& session, qint64 quillo, const QString& sentence) {
    const auto server = session.run(QStringLiteral("pgrep"), {QStringLiteral("-P"), QString::number(quillo)}).trimmed();
    const auto speech = session.synthesize(sentence);
    session.pressKey(DesktopSession::rightSuper);
    session.waitForStatus(QStringLiteral("recording"));
    session.run(QStringLiteral("kill"), {QStringLiteral("-STOP"), server});
    session.play(speech);
    session.releaseKey(DesktopSession::rightSuper);
    const bool given = session.waitForStatus(QStringLiteral("idle"), 30s);
    session.run(QStringLiteral("kill"), {QStringLiteral("-CONT"), server});
    return given && waitUntil(
                        [&] {
                            const auto latest = QJsonDocument::fromJson(
                                                    session
                                                        .quillo({QStringLiteral("history"), QStringLiteral("--limit"),
                                                                 QStringLiteral("1"), QStringLiteral("--json")})
                                                        .toUtf8())
                                                    .array()
                                                    .first()
                                                    .toObject();
                            return latest.value(QStringLiteral("status")).toString() == QStringLiteral("completed");
                        },
                        60s);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption pictures(QStringLiteral("pictures"), QStringLiteral("Folder for the screenshots."),
                                      QStringLiteral("folder"), QStringLiteral("build/demonstration"));
    const QCommandLineOption say(QStringLiteral("say"), QStringLiteral("What to say; may be repeated."),
                                 QStringLiteral("sentence"));
    parser.addOptions({pictures, say});
    parser.process(application);
    auto sentences = parser.values(say);
    if (sentences.isEmpty())
        sentences = QStringList{QStringLiteral("I think we should talk to the customer before we make a decision."),
                                QStringLiteral("Everyone on the team did an excellent job this year.")};

    QTextStream out(stdout);
    const auto folder = QDir(parser.value(pictures)).absolutePath();
    QDir().mkpath(folder);
    const QString whileSpeaking = folder + QStringLiteral("/speaking.png");
    const QString afterwards = folder + QStringLiteral("/delivered.png");
    std::optional<DesktopSession> desktop;
    try {
        auto& session = desktop.emplace(DesktopSession::Options{.compositor = true});
        out << "A virtual desktop is up; starting Quillo in it...\n" << Qt::flush;
        const auto& quillo = session.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")}});
        session.openTextField();
        out << "Holding Right Super and speaking...\n" << Qt::flush;
        std::vector<Shown> shown;
        for (const auto& sentence : sentences)
            shown.push_back(dictate(session, sentence, whileSpeaking));
        session.screenshot(afterwards);
        const auto recovered = dictateThroughAnOutage(session, quillo.processId(),
                                                      QStringLiteral("Thank you very much for your help with this."));
        const auto history = session.quillo({QStringLiteral("history")});
        session.quillo({QStringLiteral("quit")});
        const QString log = folder + QStringLiteral("/quillo.log");
        QFile::remove(log);
        QFile::copy(session.logFile(), log);

        bool delivered = true;
        for (qsizetype i = 0; i < sentences.size(); ++i) {
            const auto& one = shown[static_cast<size_t>(i)];
            delivered = delivered && !one.received.trimmed().isEmpty();
            out << "\n  spoken                      " << sentences.at(i) << "\n  received by the text field  "
                << one.received.trimmed() << "\n  key press to first sample   "
                << QString::number(one.pressToFirstSample, 'f', 1) << " ms\n  key release to text         "
                << QString::number(one.releaseToText, 'f', 1) << " ms\n";
        }
        out << "\nThen the server was stopped while a sentence was spoken, and went on later: its text "
            << (recovered ? "appeared in the history by itself" : "IS MISSING") << ".\n\n"
            << history;
        delivered = delivered && recovered;
        out << "\nOf each release, 150 ms are the wait for a second tap of the key.\n\n  screenshot while speaking  "
            << whileSpeaking << "\n  screenshot afterwards      " << afterwards << "\n  log                        "
            << log << "\n\n";
        if (!delivered) {
            session.keepFolder();
            out << "Not every sentence arrived. The logs are in " << session.folder() << "\n"
                << QJsonDocument(shown.back().status).toJson();
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
