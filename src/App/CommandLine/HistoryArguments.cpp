#include "App/CommandLine/HistoryArguments.h"

#include <array>
#include <optional>

namespace quillo {

namespace {

using Verb = HistoryArguments::Verb;

struct VerbName {
    const char16_t* name;
    Verb verb;
};

constexpr std::array verbs{VerbName{u"list", Verb::list},
                           VerbName{u"show", Verb::show},
                           VerbName{u"copy", Verb::copy},
                           VerbName{u"play", Verb::play},
                           VerbName{u"retranscribe", Verb::retranscribe},
                           VerbName{u"delete", Verb::remove}};

std::optional<Verb> verbOf(const QString& word) {
    for (const auto& [name, verb] : verbs)
        if (word == QStringView(name))
            return verb;
    return std::nullopt;
}

int64_t limitOf(const QString& value) {
    bool isNumber = false;
    const auto limit = value.toLongLong(&isNumber);
    if (value == QStringLiteral("all"))
        return -1;
    if (!isNumber || limit < 1)
        throw HistoryUsageError(QStringLiteral("--limit takes a number from 1 up, or \"all\", not \"%1\"").arg(value));
    return limit;
}

/// An option that this verb does not support, with or without a value.
[[noreturn]] void unknownOption(const QString& word) {
    throw HistoryUsageError(QStringLiteral("\"%1\" does not belong here; see quillo history --help").arg(word));
}

} // namespace

QString historyUsage() {
    return QStringLiteral(
        "usage: quillo history [list] [--limit N|all] [--search TEXT] [--tag T]... [--json]\n"
        "       quillo history show ID [--json | --text]\n"
        "       quillo history copy ID                    to the clipboard\n"
        "       quillo history play ID                    the kept recording\n"
        "       quillo history retranscribe ID [--language L]\n"
        "       quillo history delete ID\n\n"
        "ID is the identifier of a dictation, or as much of its beginning as tells it from the others.\n"
        "copy, retranscribe and delete are done by the running Quillo; the others need none.\n");
}

HistoryArguments parseHistoryArguments(const QStringList& words) {
    HistoryArguments arguments;
    qsizetype next = 0;
    if (const auto verb = words.isEmpty() ? std::nullopt : verbOf(words.constFirst())) {
        arguments.verb = *verb;
        ++next;
    } else if (!words.isEmpty() && !words.constFirst().startsWith(u'-')) {
        throw HistoryUsageError(
            QStringLiteral("there is no \"quillo history %1\"; see quillo history --help").arg(words.constFirst()));
    }
    const bool isList = arguments.verb == Verb::list;
    const auto value = [&](const QString& option) {
        if (next >= words.size())
            throw HistoryUsageError(QStringLiteral("%1 needs a value").arg(option));
        return words.at(next++);
    };
    while (next < words.size()) {
        const auto& word = words.at(next++);
        if (isList && word == QStringLiteral("--limit"))
            arguments.limit = limitOf(value(word));
        else if (isList && word == QStringLiteral("--search"))
            arguments.search = value(word);
        else if (isList && word == QStringLiteral("--tag"))
            arguments.tags.append(value(word));
        else if ((isList || arguments.verb == Verb::show) && word == QStringLiteral("--json"))
            arguments.json = true;
        else if (arguments.verb == Verb::show && word == QStringLiteral("--text"))
            arguments.textOnly = true;
        else if (arguments.verb == Verb::retranscribe && word == QStringLiteral("--language"))
            arguments.language = value(word);
        else if (word.startsWith(u'-') || isList || !arguments.id.isEmpty())
            unknownOption(word);
        else
            arguments.id = word;
    }
    if (!isList && arguments.id.isEmpty())
        throw HistoryUsageError(QStringLiteral("name the dictation: quillo history %1 ID; quillo history lists them")
                                    .arg(words.constFirst()));
    if (arguments.json && arguments.textOnly)
        throw HistoryUsageError(QStringLiteral("--json and --text exclude each other"));
    return arguments;
}

} // namespace quillo
