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
    if (!session.waitForStatus(u"recording"_qs))
        throw DesktopSessionError(u"the recording did not start; its log is %1"_qs.arg(session.logFile()));
    session.play(speech);
    session.screenshot(pictureWhileSpeaking);
    const auto released = lastRelease = session.releaseKey(DesktopSession::rightSuper);
    waitUntil([&] { return session.fieldReport().text != before; }, 30s);
    session.waitForStatus(u"idle"_qs);

    Shown shown;
    shown.status = session.status();
    const auto report = session.fieldReport();
    shown.received = report.text.mid(before.size());
    shown.releaseToText = milliseconds(report.monotonic - released);
    const auto firstSample = std::chrono::nanoseconds(
        shown.status.value(u"lastRun"_qs).toObject().value(u"firstSampleMonotonicNs"_qs).toInteger());
    shown.pressToFirstSample = milliseconds(firstSample - pressed);
    return shown;
}

/// Says `sentence` while the server is stopped; true when its text is in the history some time after the server goes
/// on, with nothing pressed.
bool dictateThroughAnOutage(DesktopSession& session, qint64 quillo, const QString& sentence) {
    const auto server = session.run(u"pgrep"_qs, {u"-P"_qs, QString::number(quillo)}).trimmed();
    const auto speech = session.synthesize(sentence);
    session.pressKey(DesktopSession::rightSuper);
    session.waitForStatus(u"recording"_qs);
    session.run(u"kill"_qs, {u"-STOP"_qs, server});
    session.play(speech);
    session.releaseKey(DesktopSession::rightSuper);
    const bool given = session.waitForStatus(u"idle"_qs, 30s);
    session.run(u"kill"_qs, {u"-CONT"_qs, server});
    const auto isTranscribed = [&] {
        const auto list = session.quillo({u"history"_qs, u"--limit"_qs, u"1"_qs, u"--json"_qs}).toUtf8();
        const auto latest = QJsonDocument::fromJson(list).array().first().toObject();
        return latest.value(u"status"_qs).toString() == u"completed"_qs;
    };
    return given && waitUntil(isTranscribed, 60s);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption pictures(u"pictures"_qs, u"Folder for the screenshots."_qs, u"folder"_qs,
                                      u"build/demonstration"_qs);
    const QCommandLineOption say(u"say"_qs, u"What to say; may be repeated."_qs, u"sentence"_qs);
    parser.addOptions({pictures, say});
    parser.process(application);
    auto sentences = parser.values(say);
    if (sentences.isEmpty())
        sentences = QStringList{u"I think we should talk to the customer before we make a decision."_qs,
                                u"Everyone on the team did an excellent job this year."_qs};

    QTextStream out(stdout);
    const auto folder = QDir(parser.value(pictures)).absolutePath();
    QDir().mkpath(folder);
    const QString whileSpeaking = folder + u"/speaking.png"_qs;
    const QString afterwards = folder + u"/delivered.png"_qs;
    std::optional<DesktopSession> desktop;
    try {
        auto& session = desktop.emplace(DesktopSession::Options{.compositor = true});
        out << "A virtual desktop is up; starting Quillo in it...\n" << Qt::flush;
        const auto& quillo = session.startQuillo({{u"primaryLanguage"_qs, u"en"_qs}});
        session.openTextField();
        out << "Holding Right Super and speaking...\n" << Qt::flush;
        std::vector<Shown> shown;
        for (const auto& sentence : sentences)
            shown.push_back(dictate(session, sentence, whileSpeaking));
        session.screenshot(afterwards);
        const auto recovered =
            dictateThroughAnOutage(session, quillo.processId(), u"Thank you very much for your help with this."_qs);
        const auto history = session.quillo({u"history"_qs});
        session.quillo({u"quit"_qs});
        const QString log = folder + u"/quillo.log"_qs;
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
