#include "AccountsCommand.h"

#include "Accounts/AccountStore.h"
#include "Accounts/Credentials.h"
#include "Accounts/PasswordHash.h"
#include "DataFolder.h"
#include "Foundation/Encoding.h"
#include "Tasks/TaskStore.h"
#include "Terminal.h"
#include "Transport/SignInTexts.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace quillo::server {
namespace {

constexpr int done = 0;
constexpr int failed = 1;
constexpr int wrongUsage = 2;
constexpr int noSuchAccount = 3;

struct Command {
    std::string action;
    std::string email;
    std::filesystem::path dataFolder;
    bool isConfirmed = false;
};

Command parse(std::span<const char* const> arguments) {
    Command command;
    std::vector<std::string> words;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string argument = arguments[i];
        if (argument == "--yes")
            command.isConfirmed = true;
        else if (argument.starts_with("--data="))
            command.dataFolder = argument.substr(7);
        else if (argument == "--data" && i + 1 < arguments.size())
            command.dataFolder = arguments[++i];
        else if (argument.starts_with("--"))
            throw UsageError(argument + ": accounts takes --data FOLDER and --yes");
        else
            words.push_back(argument);
    }
    const bool takesEmail =
        !words.empty() && (words[0] == "add" || words[0] == "reset-password" || words[0] == "delete");
    if (words.empty() || (words[0] != "list" && !takesEmail))
        throw UsageError("accounts: say list, add EMAIL, reset-password EMAIL or delete EMAIL");
    if (words.size() != (takesEmail ? 2U : 1U))
        throw UsageError("accounts " + words[0] + ": " +
                         (takesEmail ? "give one e-mail address after it, and no password: it is asked for"
                                     : "takes nothing after it"));
    command.action = words[0];
    if (takesEmail) {
        const auto email = normalisedEmail(words[1]);
        if (!email)
            throw UsageError("accounts " + words[0] + ": \"" + words[1] + "\" is not an e-mail address");
        command.email = *email;
    }
    if (command.dataFolder.empty())
        command.dataFolder = defaultDataFolder();
    return command;
}

std::chrono::system_clock::time_point now() { return std::chrono::system_clock::now(); }

void say(const std::string& text) { std::fprintf(stderr, "quillo-server: %s\n", text.c_str()); }

std::string dateOf(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    char text[32] = "";
    if (::localtime_r(&seconds, &local))
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return text;
}

int list(AccountStore& store) {
    std::vector<std::vector<std::string>> rows = {{"E-MAIL", "NAME", "CREATED", "SIGN-INS"}};
    for (const auto& account : store.accounts())
        rows.push_back({account.user.email.value_or(""), account.user.fullName.value_or("-"), dateOf(account.created),
                        std::to_string(account.signIns)});
    const auto widthOf = [](const std::string& text) { return countCharacters(text).value_or(text.size()); };
    std::vector<size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + (i + 1 < row.size() ? std::string(widths[i] - widthOf(row[i]) + 2, ' ') : std::string());
        std::puts(line.c_str());
    }
    return done;
}

/// A new password that may be used; empty when there is none, which the user was told.
std::optional<std::string> askForPassword(const std::string& email) {
    const auto password = readSecret("New password of " + email + ": ");
    if (!password) {
        say("no password was given; nothing was changed");
        return std::nullopt;
    }
    if (const auto objection = objectionTo(*password, email)) {
        say(pageText(pageTextOf(*objection), {}) + " Nothing was changed.");
        return std::nullopt;
    }
    if (isInteractive() && readSecret("The same once more: ") != password) {
        say("the two are not the same; nothing was changed");
        return std::nullopt;
    }
    return password;
}

int add(AccountStore& store, const std::string& email) {
    const auto password = askForPassword(email);
    if (!password)
        return failed;
    if (!store.addAccount(email, std::nullopt, hashPassword(*password))) {
        say("there is an account " + email + " already; nothing was changed");
        return failed;
    }
    std::printf("The account %s was made.\n", email.c_str());
    return done;
}

int resetPassword(AccountStore& store, const std::string& email) {
    const auto password = askForPassword(email);
    if (!password)
        return failed;
    if (!store.resetPassword(email, hashPassword(*password)))
        return noSuchAccount;
    std::printf("The password of %s was changed, and every sign-in of the account has ended.\n", email.c_str());
    return done;
}

bool confirms(const std::string& email) {
    std::fprintf(stderr, "This deletes the account %s and all that the server keeps of it. Type the address to do it: ",
                 email.c_str());
    std::fflush(stderr);
    const auto line = readLine();
    return line && normalisedEmail(*line) == email;
}

int remove(AccountStore& store, const Command& command, const std::string& userId) {
    if (!command.isConfirmed && !isInteractive()) {
        say("delete asks before it does it, and there is no terminal to ask on; add --yes");
        return wrongUsage;
    }
    if (!command.isConfirmed && !confirms(command.email)) {
        say("not confirmed; nothing was deleted");
        return failed;
    }
    // Delete the account last: while it exists, an interrupted removal can be repeated.
    const auto tasks = command.dataFolder / "tasks.sqlite";
    if (std::filesystem::exists(tasks)) {
        TaskStore taskStore(tasks, now);
        for (const auto& file : taskStore.removeUser(userId)) {
            std::error_code ignored; // the next start of the server removes leftovers
            std::filesystem::remove(command.dataFolder / "uploads" / file, ignored);
        }
    }
    store.remove(userId);
    std::printf("The account %s was deleted.\n", command.email.c_str());
    return done;
}

int run(const Command& command) {
    const auto file = command.dataFolder / "accounts.sqlite";
    if (!std::filesystem::exists(file)) {
        say("there are no accounts in " + command.dataFolder.string() +
            "; give the folder that the server runs with, as --data FOLDER");
        return failed;
    }
    AccountStore store(file, now);
    if (command.action == "list")
        return list(store);
    if (command.action == "add")
        return add(store, command.email);
    const auto credentials = store.credentialsOf(command.email);
    const int result = !credentials                         ? noSuchAccount
                       : command.action == "reset-password" ? resetPassword(store, command.email)
                                                            : remove(store, command, credentials->userId);
    if (result == noSuchAccount)
        say("there is no account " + command.email + "; quillo-server accounts list shows those there are");
    return result;
}

} // namespace

int runAccountsCommand(std::span<const char* const> arguments) {
    if (std::ranges::any_of(arguments, [](std::string_view argument) { return argument == "--help"; })) {
        std::fputs(accountsHelpText().c_str(), stdout);
        return done;
    }
    try {
        return run(parse(arguments));
    } catch (const UsageError& error) {
        say(error.what());
        return wrongUsage;
    } catch (const std::exception& error) {
        say(error.what());
        return failed;
    }
}

std::string accountsHelpText() {
    return "Accounts, for the administrator, also while the server runs (--data FOLDER as above):\n\n"
           "  quillo-server accounts list\n"
           "      e-mail address, name, day of registration and open sign-ins of every account.\n"
           "  quillo-server accounts add EMAIL\n"
           "      makes an account, also where registration is closed; the password is asked for, or read from "
           "standard "
           "input.\n"
           "  quillo-server accounts reset-password EMAIL\n"
           "      asks for a new password, or reads it from standard input, and ends the account's sign-ins.\n"
           "  quillo-server accounts delete EMAIL [--yes]\n"
           "      deletes the account and all that is kept of it; asks first, unless --yes is given.\n"
           "\nExit codes of accounts: 0 done, 1 failed or not confirmed, 2 wrong usage, 3 no such account.\n";
}

} // namespace quillo::server
