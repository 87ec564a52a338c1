#include "App/CommandLine/HistoryCommand.h"

#include "App/CommandLine/HistoryArguments.h"
#include "App/CommandLine/HistoryText.h"
#include "App/Remote/ControlClient.h"
#include "Data/DataContainer.h"
#include "Features/ErrorTexts/ErrorTexts.h"
#include "Localization/LocalizationManager.h"
#include "Platform/Linux/PulseAudio/PulseAudioPlayback.h"
#include "Services/History/HistoryActions.h"

#include <QTextStream>

namespace quillo::historyCommand {

namespace {

using Verb = HistoryArguments::Verb;

void print(const QString& text) { QTextStream(stdout) << text; }

void printError(const QString& text) { QTextStream(stderr) << "quillo: " << text << '\n'; }

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
    const auto record = historyActions::recordBeginningWith(context, arguments.id);
    if (arguments.verb == Verb::show)
        show(*record, arguments);
    else if (arguments.verb == Verb::play)
        historyActions::play(*record, *createPulseAudioPlayback());
    else
        return askInstance(record->id, arguments);
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
        printError(LocalizationManager::shared().t(errorTexts::ofAny(error)));
        return 1;
    }
}

} // namespace quillo::historyCommand
