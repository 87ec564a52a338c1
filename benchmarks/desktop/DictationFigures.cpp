// Figures of whole dictations in a real session on a virtual display: how soon the microphone delivers after the key,
// how soon the text is in the field after the release, and how many words come out wrong.
//
// usage: DictationFigures [ROUNDS] [SENTENCES] [DELIVERIES] [SLOW OWNERS] [kind|unkind]
//
// "unkind" adds a clipboard manager that reads everything, and has the hold key on a keyboard of its own.

#include "DesktopSession.h"
#include "Server/Transcription/Support/Speech.h"
#include "Support/Async.h"
#include "Support/PhysicalKeyboard.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTextStream>

#include <algorithm>
#include <cmath>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

/// The hotkey's wait for a second tap. It is part of every release and does not count as the program's time.
constexpr double doubleTapWaitMs = 150;

bool isUnkind = false;

double milliseconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

struct Dictated {
    QString text;
    double pressToFirstSample = 0;
    double releaseToText = 0;
    double serverTime = 0; ///< from end_session to session_ended
};

class Dictations {
public:
    explicit Dictations(const QString& serverOptions) {
        m_session.environment().insert(QStringLiteral("QUILLO_SERVER_OPTIONS"), serverOptions);
        begin();
    }

    /// The recogniser answers every dictation with `text`.
    struct Scripted {
        QString text;
    };
    explicit Dictations(const Scripted& scripted) {
        QFile script(m_session.path(QStringLiteral("script.json")));
        if (!script.open(QIODevice::WriteOnly))
            throw DesktopSessionError(QStringLiteral("the script could not be written"));
        const QJsonArray events{QJsonObject{{QStringLiteral("at"), 0.2}, {QStringLiteral("final"), scripted.text}}};
        script.write(QJsonDocument(QJsonObject{{QStringLiteral("events"), events}}).toJson());
        m_session.environment().insert(QStringLiteral("QUILLO_SERVER_OPTIONS"),
                                       QStringLiteral("--recogniser scripted --script ") + script.fileName());
        begin();
    }

    DesktopSession& session() { return m_session; }

    std::optional<Dictated> dictate(const QString& speech) {
        const auto before = m_session.fieldReport().text;
        waitUntil([&] { return monotonicNow() - m_released > 400ms; });
        const auto pressed = moveKey(true);
        if (!m_session.waitForStatus(QStringLiteral("recording")))
            return std::nullopt;
        m_session.play(speech);
        m_released = moveKey(false);
        if (!waitUntil([&] { return m_session.fieldReport().text != before; }, 20s) ||
            !m_session.waitForStatus(QStringLiteral("idle")))
            return std::nullopt;
        const auto report = m_session.fieldReport();
        const auto run = m_session.status().value(QStringLiteral("lastRun")).toObject();
        const auto timings = run.value(QStringLiteral("timings")).toObject();
        const auto firstSample =
            std::chrono::nanoseconds(run.value(QStringLiteral("firstSampleMonotonicNs")).toInteger());
        return Dictated{run.value(QStringLiteral("text")).toString(), milliseconds(firstSample - pressed),
                        milliseconds(report.monotonic - m_released),
                        timings.value(QStringLiteral("stop_to_session_ended_ms")).toDouble()};
    }

private:
    std::chrono::nanoseconds moveKey(bool press) {
        if (!m_keyboard)
            return press ? m_session.pressKey(DesktopSession::rightSuper)
                         : m_session.releaseKey(DesktopSession::rightSuper);
        const auto now = monotonicNow();
        m_keyboard->key(DesktopSession::rightSuper, press);
        return now;
    }

    void begin() {
        if (isUnkind) {
            m_keyboard.emplace(m_session.environment().value(QStringLiteral("DISPLAY")));
            m_session.launch(QStringLiteral("clipboard-manager"),
                             QStringLiteral(QUILLO_PROGRAM_FOLDER "/quillo-clipboard-manager"), {});
            m_session.shell(QStringLiteral("printf theirs | xclip -selection clipboard -i >/dev/null 2>&1"));
        }
        m_session.startQuillo({{QStringLiteral("primaryLanguage"), QStringLiteral("en")},
                               {QStringLiteral("smartSpacing"), QStringLiteral("false")}});
        m_session.openTextField();
    }

    DesktopSession m_session;
    std::optional<PhysicalKeyboard> m_keyboard;
    std::chrono::nanoseconds m_released{};
};

void print(QTextStream& out, const char* label, std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto at = [&](double share) {
        return values[static_cast<size_t>(std::ceil(share * static_cast<double>(values.size()))) - 1];
    };
    out << QString::fromLatin1(label).leftJustified(68) << "least " << QString::number(values.front(), 'f', 1)
        << " ms, median " << QString::number(at(0.5), 'f', 1) << " ms, 95 % " << QString::number(at(0.95), 'f', 1)
        << " ms, worst " << QString::number(values.back(), 'f', 1) << " ms (" << values.size() << " runs)\n";
}

void printLatencies(QTextStream& out, int rounds) {
    // A scripted recogniser takes no time, so the result is the program's own time.
    Dictations dictations(QStringLiteral("--recogniser scripted"));
    const auto speech = dictations.session().synthesize(QStringLiteral("a word or two"));
    std::vector<double> first;
    std::vector<double> text;
    std::vector<double> server;
    for (int i = 0; i < rounds; ++i) {
        const auto dictated = dictations.dictate(speech);
        if (!dictated)
            throw DesktopSessionError(QStringLiteral("dictation %1 did not arrive").arg(i + 1));
        first.push_back(dictated->pressToFirstSample);
        text.push_back(dictated->releaseToText - doubleTapWaitMs);
        server.push_back(dictated->serverTime);
    }
    print(out, "key press to first captured sample", first);
    print(out, "key release to text, less the wait for a second tap", text);
    print(out, "  of it until the server's last word", server);
}

/// How long whole texts take to reach the field, pasted and typed.
void printDeliveries(QTextStream& out, int rounds) {
    const auto sentence = QStringLiteral("The quick brown fox jumps over the lazy dog, and says so. ");
    const auto foreign = QStringLiteral("Größe, naïve Ж 日本 – “fünf” €; ");
    for (const auto& [what, piece] : {std::pair("of the layout", sentence), std::pair("of many scripts", foreign)}) {
        const auto text = piece.repeated(500 / piece.size() + 1).left(499) + QLatin1Char('.');
        Dictations dictations(Dictations::Scripted{text});
        auto& session = dictations.session();
        const auto speech = session.synthesize(QStringLiteral("a word or two"));
        for (const auto* mode : {"paste", "type"}) {
            session.quillo({QStringLiteral("settings"), QStringLiteral("set"), QStringLiteral("insertionMode"),
                            QString::fromLatin1(mode)});
            std::vector<double> times;
            for (int i = 0; i < rounds; ++i) {
                const auto before = session.fieldReport().text;
                const auto dictated = dictations.dictate(speech);
                if (!dictated || !waitUntil([&] { return session.fieldReport().text == before + text; }, 10s))
                    throw DesktopSessionError(QStringLiteral("a text did not arrive whole"));
                times.push_back(dictated->releaseToText - doubleTapWaitMs);
            }
            const auto label = QStringLiteral("key release to the last of 500 characters %1, %2")
                                   .arg(QString::fromLatin1(what), QString::fromLatin1(mode));
            print(out, label.toLatin1().constData(), times);
        }
    }
}

/// How late a text is whose clipboard belongs to a program that answers `seconds` after the key, and what is left of
/// it.
void printSlowOwners(QTextStream& out, int rounds) {
    Dictations dictations(QStringLiteral("--recogniser scripted"));
    auto& session = dictations.session();
    const auto speech = session.synthesize(QStringLiteral("a word or two"));
    for (const int seconds : {1, 3, 10}) {
        std::vector<double> times;
        int kept = 0;
        for (int i = 0; i < rounds; ++i) {
            auto& owner = session.launch(
                QStringLiteral("owner"), QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("printf theirs >$HOME/theirs; "
                                                      "exec xclip -selection clipboard -quiet -i $HOME/theirs")});
            const auto content = [&] { return session.shell(u"timeout 15 xclip -selection clipboard -o"_qs); };
            waitUntil([&] { return content() == u"theirs"; }, 5s);
            const auto command = u"kill -STOP %1; sleep %2; kill -CONT %1"_qs.arg(owner.processId()).arg(seconds);
            session.launch(QStringLiteral("slow"), QStringLiteral("sh"), {QStringLiteral("-c"), command});
            const auto dictated = dictations.dictate(speech);
            if (!dictated)
                throw DesktopSessionError(QStringLiteral("a text did not arrive"));
            times.push_back(dictated->releaseToText - doubleTapWaitMs);
            kept += waitUntil([&] { return content() == u"theirs"; }, 2s) ? 1 : 0;
            session.end(owner);
        }
        print(out, qPrintable(u"key release to text, the clipboard's owner answers after %1 s"_qs.arg(seconds)), times);
        out << "  its content is kept in " << kept << " of " << rounds << " runs\n";
    }
}

void printWordErrors(QTextStream& out, size_t count) {
    Dictations dictations{QString()};
    size_t errors = 0;
    size_t words = 0;
    std::vector<double> text;
    const auto all = quillo::server::test::sentences();
    for (const auto& sentence : all.first(std::min(count, all.size()))) {
        const auto reference = std::string(sentence.text);
        const auto dictated = dictations.dictate(dictations.session().synthesize(QString::fromStdString(reference)));
        errors += quillo::server::test::wordErrors(reference, dictated ? dictated->text.toStdString() : std::string());
        words += quillo::server::test::wordCount(reference);
        if (dictated)
            text.push_back(dictated->releaseToText - doubleTapWaitMs);
    }
    out << "word error rate through the whole chain (voice rms): "
        << QString::number(100.0 * static_cast<double>(errors) / static_cast<double>(words), 'f', 1) << " % of "
        << words << " words\n";
    if (!text.empty())
        print(out, "key release to text with the embedded recogniser", text);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    const auto arguments = QCoreApplication::arguments();
    const int rounds = arguments.size() > 1 ? arguments.at(1).toInt() : 100;
    const int sentenceCount = arguments.size() > 2 ? arguments.at(2).toInt() : 12;
    const int deliveries = arguments.size() > 3 ? arguments.at(3).toInt() : 10;
    const int slowOwners = arguments.size() > 4 ? arguments.at(4).toInt() : 0;
    isUnkind = arguments.size() > 5 && arguments.at(5) == u"unkind";
    try {
        if (rounds > 0)
            printLatencies(out, rounds);
        out << Qt::flush;
        if (slowOwners > 0)
            printSlowOwners(out, slowOwners);
        out << Qt::flush;
        if (deliveries > 0)
            printDeliveries(out, deliveries);
        out << Qt::flush;
        if (sentenceCount > 0)
            printWordErrors(out, static_cast<size_t>(sentenceCount));
        return 0;
    } catch (const std::exception& error) {
        QTextStream(stderr) << QString::fromUtf8(error.what()) << '\n';
        return 1;
    }
}
