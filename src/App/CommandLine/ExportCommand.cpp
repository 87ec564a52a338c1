#include "App/CommandLine/ExportCommand.h"

#include "App/CommandLine/HistoryText.h"
#include "Data/DataContainer.h"
#include "Features/ErrorTexts/ErrorTexts.h"
#include "Localization/LocalizationManager.h"
#include "Services/History/HistoryActions.h"
#include "Services/Meetings/RecordExport.h"

#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

namespace quillo::exportCommand {

namespace {

const QString usage = QStringLiteral(
    "usage: quillo export ID [--format srt|vtt|txt|md|json] [--output FILE [--force]]\n\n"
    "Prints the dictation or meeting, or writes it to FILE, which --force replaces. Without --format, the ending of\n"
    "FILE decides, and otherwise it is txt.\n");

struct Arguments {
    QString id;
    QString format;
    QString output;
    bool force = false;
};

void printError(const QString& text) { QTextStream(stderr) << "quillo: " << text << '\n'; }

bool isFormat(const QString& name) { return name == QStringLiteral("json") || recordExport::formatOf(name); }

std::optional<Arguments> parse(const QStringList& words) {
    Arguments arguments;
    for (qsizetype next = 0; next < words.size(); ++next) {
        const auto& word = words.at(next);
        if (word == QStringLiteral("--format") && next + 1 < words.size())
            arguments.format = words.at(++next);
        else if (word == QStringLiteral("--output") && next + 1 < words.size())
            arguments.output = words.at(++next);
        else if (word == QStringLiteral("--force"))
            arguments.force = true;
        else if (!word.startsWith(u'-') && arguments.id.isEmpty())
            arguments.id = word;
        else
            return std::nullopt;
    }
    const auto ending = QFileInfo(arguments.output).suffix().toLower();
    if (arguments.format.isEmpty())
        arguments.format = isFormat(ending) ? ending : QStringLiteral("txt");
    const bool isWhole = !arguments.id.isEmpty() && (!arguments.force || !arguments.output.isEmpty());
    return isWhole && isFormat(arguments.format) ? std::optional(arguments) : std::nullopt;
}

QByteArray exported(const Arguments& arguments) {
    const auto container = DataContainer::openReadOnly();
    const auto record = historyActions::recordBeginningWith(container->mainContext(), arguments.id);
    const auto format = recordExport::formatOf(arguments.format);
    return format ? recordExport::exported(*record, *format).toUtf8() : historyText::jsonDetails(*record);
}

/// Writes the whole file or leaves the old one.
int write(const Arguments& arguments, const QByteArray& content) {
    if (!arguments.force && QFileInfo::exists(arguments.output)) {
        printError(QStringLiteral("%1 exists; --force replaces it").arg(arguments.output));
        return 1;
    }
    QSaveFile file(arguments.output);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit()) {
        printError(QStringLiteral("%1 cannot be written: %2").arg(arguments.output, file.errorString()));
        return 1;
    }
    return 0;
}

} // namespace

int run(const QStringList& words) {
    if (words == QStringList{QStringLiteral("--help")} || words == QStringList{QStringLiteral("-h")}) {
        QTextStream(stdout) << usage;
        return 0;
    }
    const auto arguments = parse(words);
    if (!arguments) {
        QTextStream(stderr) << usage;
        return 2;
    }
    try {
        const auto content = exported(*arguments);
        if (!arguments->output.isEmpty())
            return write(*arguments, content);
        QTextStream(stdout) << QString::fromUtf8(content);
        return 0;
    } catch (const std::exception& error) {
        printError(LocalizationManager::shared().t(errorTexts::ofAny(error)));
        return 1;
    }
}

} // namespace quillo::exportCommand
