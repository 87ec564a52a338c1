#include "App/CommandLine/CommandLine.h"

#include "App/CommandLine/ExportCommand.h"
#include "App/CommandLine/HistoryCommand.h"
#include "App/Remote/ControlClient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <array>

namespace quillo::commandLine {

namespace {

using controlClient::call;

struct Command {
    const char* name;
    const char* method;
    const char* help;
};

constexpr std::array commands{
    Command{"start", "Start", "begin a dictation; nothing when one runs"},
    Command{"stop", "Stop", "end the dictation and insert its text; nothing when none runs"},
    Command{"toggle", "Toggle", "start or stop: bind this to a key where hotkeys cannot be had"},
    Command{"cancel", "Cancel", "end the dictation and discard it"},
    Command{"again", "InsertAgain", "insert the last text again"},
    Command{"status", "Status", "print what Quillo is doing (--json: everything, for scripts)"},
    Command{"show", "Show", "bring Quillo to the front"},
    Command{"history", "", "list, show, copy, play, retranscribe or delete dictations (--help: how)"},
    Command{"export", "", "a dictation or meeting as text, subtitles, Markdown or JSON (--help: how)"},
    Command{"settings", "", "list | get KEY | set [--force] KEY VALUE"},
    Command{"account", "Account", "print who is signed in"},
    Command{"sign-in", "SignIn", "sign in, in the browser"},
    Command{"register", "Register", "make an account, in the browser"},
    Command{"sign-out", "SignOut", "forget the account on this machine and go on without one"},
    Command{"quit", "Quit", "end Quillo"},
};

const Command* find(const QString& name) {
    for (const auto& command : commands)
        if (name == QLatin1String(command.name))
            return &command;
    return nullptr;
}

void printError(const QString& text) { QTextStream(stderr) << "quillo: " << text << '\n'; }

/// One readable line made from the status object.
QString describe(const QString& status) {
    const auto object = QJsonDocument::fromJson(status.toUtf8()).object();
    auto line = object.value(QStringLiteral("status")).toString();
    for (const auto& conflict : object.value(QStringLiteral("unavailableHotkeys")).toArray())
        line += u'\n' + conflict.toObject().value(QStringLiteral("message")).toString();
    const auto run = object.value(QStringLiteral("lastRun")).toObject();
    if (!run.isEmpty())
        line += QStringLiteral("\nlast dictation: %1").arg(run.value(QStringLiteral("reason")).toString());
    return line;
}

int runSettings(const QStringList& arguments) {
    const auto usage = QStringLiteral("usage: quillo settings list | get KEY | set [--force] KEY VALUE");
    const auto verb = arguments.value(1);
    QString answer;
    int code = 2;
    if (verb == QStringLiteral("list") && arguments.size() == 2)
        code = call(QStringLiteral("ListSettings"), {}, &answer);
    else if (verb == QStringLiteral("get") && arguments.size() == 3)
        code = call(QStringLiteral("GetSetting"), {arguments.at(2)}, &answer);
    else if (verb == QStringLiteral("set") && arguments.size() == 4)
        return call(QStringLiteral("SetSetting"), {arguments.at(2), arguments.at(3)}, &answer);
    else if (verb == QStringLiteral("set") && arguments.size() == 5 && arguments.at(2) == QStringLiteral("--force"))
        return call(QStringLiteral("ForceSetting"), {arguments.at(3), arguments.at(4)}, &answer);
    else
        printError(usage);
    if (code == 0)
        QTextStream(stdout) << answer << '\n';
    return code;
}

} // namespace

bool understands(const QStringList& arguments) { return !arguments.isEmpty() && find(arguments.constFirst()); }

int run(const QStringList& arguments) {
    const auto* command = find(arguments.constFirst());
    if (arguments.constFirst() == QStringLiteral("settings"))
        return runSettings(arguments);
    if (arguments.constFirst() == QStringLiteral("history"))
        return historyCommand::run(arguments.mid(1));
    if (arguments.constFirst() == QStringLiteral("export"))
        return exportCommand::run(arguments.mid(1));
    const bool isStatus = arguments.constFirst() == QStringLiteral("status");
    const bool json = isStatus && arguments.value(1) == QStringLiteral("--json");
    if (arguments.size() > (json ? 2 : 1)) {
        printError(QStringLiteral("\"%1\" takes no argument \"%2\"").arg(arguments.at(0), arguments.at(json ? 2 : 1)));
        return 2;
    }
    QString answer;
    const int code = call(QString::fromLatin1(command->method), {}, &answer);
    if (code == 0 && isStatus)
        QTextStream(stdout) << (json ? answer : describe(answer)) << '\n';
    else if (code == 0 && !answer.isEmpty())
        QTextStream(stdout) << answer << '\n';
    return code;
}

QString help() {
    QString text;
    for (const auto& command : commands)
        text += QStringLiteral("  %1 %2\n")
                    .arg(QString::fromLatin1(command.name), -10)
                    .arg(QString::fromUtf8(command.help));
    return text;
}

} // namespace quillo::commandLine
