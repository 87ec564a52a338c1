#include "App/HistoryCommand.h"

#include "App/AudioPlayback.h"
#include "App/ControlClient.h"
#include "App/HistoryArguments.h"
#include "App/HistoryText.h"
#include "Data/DataContainer.h"

#include <QTextStream>

namespace quillo::historyCommand {

namespace {

using Verb = HistoryArguments::Verb;

/// Ends the command with this sentence and exit code 1.
class Refusal : public std::runtime_error {
public:
    explicit Refusal(const QString& message) : std::runtime_error(message.toStdString()) {}
};

void print(const QString& text) { QTextStream(stdout) << text; }

void printError(const QString& text) { QTextStream(stderr) << "quillo: " << text << '\n'; }

QUuid resolve(ModelContext& context, const QString& beginning) {
    constexpr int64_t shown = 5;
    const auto ids = context.idsBeginningWith(beginning, shown + 1);
    if (ids.isEmpty())
        throw Refusal(QStringLiteral("no dictation has the id \"%1\"; quillo history lists them").arg(beginning));
    if (ids.size() == 1)
        return ids.constFirst();
    QStringList candidates;
    for (const auto& id : ids.first(std::min<qsizetype>(ids.size(), shown)))
        candidates.append(id.toString(QUuid::WithoutBraces));
    throw Refusal(QStringLiteral("\"%1\" is the beginning of several ids; type more of it: %2%3")
                      .arg(beginning, candidates.join(QStringLiteral(", ")),
                           ids.size() > shown ? QStringLiteral(", ...") : QString()));
}

void list(ModelContext& context, const HistoryArguments& arguments) {
    RecordQuery query;
    query.search = arguments.search;
    query.tagNames = arguments.tags;
    query.limit = arguments.limit;
    if (arguments.json) {
        print(QString::fromUtf8(historyText::jsonList(context.fetch(query))));
        return;
    }
    const auto records = context.summaries(query);
    if (records.isEmpty())
        printError(arguments.search.isEmpty() && arguments.tags.isEmpty()
                       ? QStringLiteral("the history is empty")
                       : QStringLiteral("nothing in the history matches"));
    print(historyText::list(records));
}

void show(const TranscriptionRecord& record, const HistoryArguments& arguments) {
    if (arguments.json)
        print(QString::fromUtf8(historyText::jsonDetails(record)));
    else if (arguments.textOnly)
        print(historyText::plain(record.text) + u'\n');
    else
        print(historyText::details(record));
}

void play(const TranscriptionRecord& record) {
    if (!record.hasAudioOnDisk())
        throw Refusal(QStringLiteral("the recording of this dictation was not kept; the settings say for how long "
                                     "recordings are kept"));
    playRecording(audioPath(*record.effectiveAudioId()));
}

int askInstance(const QUuid& id, const HistoryArguments& arguments) {
    const auto full = id.toString(QUuid::WithoutBraces);
    QString answer;
    switch (arguments.verb) {
    case Verb::copy: {
        const int code = controlClient::call(QStringLiteral("HistoryCopy"), {full}, &answer);
        if (code == controlClient::notRunning)
            printError(QStringLiteral("without it, use: quillo history show %1 --text").arg(arguments.id));
        return code;
    }
    case Verb::retranscribe:
        return controlClient::call(QStringLiteral("HistoryRetranscribe"), {full, arguments.language}, &answer);
    default:
        return controlClient::call(QStringLiteral("HistoryDelete"), {full}, &answer);
    }
}

int perform(const HistoryArguments& arguments) {
    const auto container = DataContainer::openReadOnly();
    auto& context = container->mainContext();
    if (arguments.verb == Verb::list) {
        list(context, arguments);
        return 0;
    }
    const auto id = resolve(context, arguments.id);
    if (arguments.verb != Verb::show && arguments.verb != Verb::play)
        return askInstance(id, arguments);
    const auto record = context.record(id);
    if (!record)
        throw Refusal(QStringLiteral("this dictation was deleted just now"));
    if (arguments.verb == Verb::show)
        show(*record, arguments);
    else
        play(*record);
    return 0;
}

} // namespace

int run(const QStringList& words) {
    if (words == QStringList{QStringLiteral("--help")} || words == QStringList{QStringLiteral("-h")}) {
        print(historyUsage());
        return 0;
    }
    try {
        return perform(parseHistoryArguments(words));
    } catch (const HistoryUsageError& error) {
        printError(QString::fromUtf8(error.what()));
        return 2;
    } catch (const std::exception& error) {
        printError(QString::fromUtf8(error.what()));
        return 1;
    }
}

} // namespace quillo::historyCommand
