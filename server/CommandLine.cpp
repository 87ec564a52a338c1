#include "CommandLine.h"

#include <arpa/inet.h>
#include <charconv>
#include <cmath>
#include <functional>
#include <unistd.h>
#include <vector>

namespace quillo::server {
namespace {

struct Option {
    const char* name;
    const char* value; ///< null for a switch
    const char* help;
    std::function<void(CommandLine&, const std::string&)> apply;
};

[[noreturn]] void badValue(const std::string& option, const std::string& value, const std::string& wanted) {
    throw UsageError(option + ": \"" + value + "\" is not " + wanted);
}

long number(const std::string& option, const std::string& text, long least, long most) {
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        badValue(option, text, "a number from " + std::to_string(least) + " to " + std::to_string(most));
    return value;
}

auto count(const char* name, size_t ServerOptions::*member) {
    return [name, member](CommandLine& line, const std::string& text) {
        line.server.*member = static_cast<size_t>(number(name, text, 1, 1000000));
    };
}

std::chrono::seconds seconds(const char* name, const std::string& text, long most = 86400) {
    return std::chrono::seconds(number(name, text, 1, most));
}

std::string address(const char* name, const std::string& text) {
    in_addr v4{};
    in6_addr v6{};
    char normal[INET6_ADDRSTRLEN];
    // Normalise the address, because connections are compared in that form.
    if (::inet_pton(AF_INET, text.c_str(), &v4) == 1)
        return ::inet_ntop(AF_INET, &v4, normal, sizeof normal);
    if (::inet_pton(AF_INET6, text.c_str(), &v6) == 1)
        return ::inet_ntop(AF_INET6, &v6, normal, sizeof normal);
    badValue(name, text, "an address such as 127.0.0.1 or 2001:db8::1");
}

uint64_t megabytes(const char* name, const std::string& text) {
    return static_cast<uint64_t>(number(name, text, 1, 1000000)) * 1000 * 1000;
}

std::vector<std::string> languageList(const char* name, const std::string& text) {
    std::vector<std::string> codes(1);
    for (const char letter : text) {
        if (letter == ',')
            codes.emplace_back();
        else if (letter >= 'a' && letter <= 'z')
            codes.back() += letter;
        else
            badValue(name, text, "a list of codes such as en,de");
    }
    for (const auto& code : codes)
        if (code.size() < 2 || code.size() > 3)
            badValue(name, text, "a list of codes such as en,de");
    return codes;
}

RecogniserKind recogniserKind(const std::string& text) {
    if (text == "pocketsphinx")
        return RecogniserKind::pocketSphinx;
    if (text == "http")
        return RecogniserKind::http;
    if (text == "scripted")
        return RecogniserKind::scripted;
    badValue("--recogniser", text, "one of pocketsphinx, http, scripted");
}

const std::vector<Option>& options() {
    static const std::vector<Option> all = {
        {"--listen", "ADDRESS:PORT",
         "where to listen (default 127.0.0.1:48650; port 0 for any free one; fd:N for an "
         "inherited listening socket). A socket handed over by the service manager "
         "(LISTEN_FDS) is used unless this is given",
         [](CommandLine& line, const std::string& text) {
             line.server.listen = text;
             line.listenGiven = true;
         }},
        {"--data", "FOLDER", "keys, certificates, accounts and uploads (default $XDG_DATA_HOME/quillo/server)",
         [](CommandLine& line, const std::string& text) { line.server.dataFolder = text; }},
        {"--host", "NAME", "one more name or address the certificate is valid for; may be repeated",
         [](CommandLine& line, const std::string& text) {
             if (text.empty() || text.find_first_of(", /:=") != std::string::npos)
                 if (text.find("::") == std::string::npos)
                     badValue("--host", text, "a host name or an address");
             line.server.hosts.push_back(text);
         }},
        {"--certificate", "FILE",
         "the certificate to serve TLS with, followed by those of its issuers (PEM); needs --key. Without it "
         "the server makes an authority of its own. Read again every 12 hours",
         [](CommandLine& line, const std::string& text) { line.server.certificateFile = text; }},
        {"--key", "FILE", "the private key of --certificate (PEM)",
         [](CommandLine& line, const std::string& text) { line.server.keyFile = text; }},
        {"--trust-proxy", "ADDRESS",
         "a reverse proxy whose X-Forwarded-For and X-Forwarded-Proto are believed; may be repeated. Have it set both, "
         "or all of its clients share one limit",
         [](CommandLine& line, const std::string& text) {
             line.server.trustedProxies.push_back(address("--trust-proxy", text));
         }},
        {"--hsts", nullptr,
         "tell browsers to ask this host by TLS alone for a year, on every port of it (Strict-Transport-Security)",
         [](CommandLine& line, const std::string&) { line.server.strictTransportSecurity = true; }},
        {"--registration", "open|closed", "whether people can make accounts by themselves (default open)",
         [](CommandLine& line, const std::string& text) {
             if (text != "open" && text != "closed")
                 badValue("--registration", text, "open or closed");
             line.server.openRegistration = text == "open";
         }},
        {"--no-anonymous", nullptr, "serve people with an account alone",
         [](CommandLine& line, const std::string&) { line.server.servesAnonymous = false; }},
        {"--no-meetings", nullptr, "serve dictations alone: a meeting is refused with MEETING_DISABLED",
         [](CommandLine& line, const std::string&) { line.server.servesMeetings = false; }},
        {"--own-user-only", nullptr, "serve programs of the user who starts the server alone, on this machine",
         [](CommandLine& line, const std::string&) { line.server.onlyUser = ::geteuid(); }},
        {"--exit-with-parent", nullptr, "end when the process that started this one ends",
         [](CommandLine& line, const std::string&) { line.exitWithParent = true; }},
        {"--threads", "N", "threads for connections (default 2)",
         [](CommandLine& line, const std::string& text) {
             line.server.threads = static_cast<unsigned>(number("--threads", text, 1, 256));
         }},
        {"--recogniser", "KIND",
         "pocketsphinx (default, English, in this process), http (a service at a URL) or "
         "scripted (hears nothing, for trials)",
         [](CommandLine& line, const std::string& text) { line.recogniser.kind = recogniserKind(text); }},
        {"--recogniser-url", "URL", "the service that --recogniser http asks",
         [](CommandLine& line, const std::string& text) { line.recogniser.url = text; }},
        {"--recogniser-key-file", "FILE",
         "holds the key of that service; or put it into the environment as "
         "QUILLO_RECOGNISER_KEY. A key on the command line would show in every "
         "process list",
         [](CommandLine& line, const std::string& text) { line.recogniser.keyFile = text; }},
        {"--recogniser-model", "NAME", "the model that service should use, or the folder of the embedded one",
         [](CommandLine& line, const std::string& text) { line.recogniser.model = text; }},
        {"--recogniser-languages", "LIST",
         "the languages that service understands, such as \"en,de\"; the application then warns of others",
         [](CommandLine& line, const std::string& text) {
             line.recogniser.languages = languageList("--recogniser-languages", text);
         }},
        {"--recogniser-path", "PATH",
         "of the service at the URL (default /v1/audio/transcriptions; /inference for an unconfigured whisper.cpp)",
         [](CommandLine& line, const std::string& text) {
             if (!text.starts_with('/'))
                 badValue("--recogniser-path", text, "a path that begins with /");
             line.recogniser.path = text;
         }},
        {"--recogniser-prompt", "TEXT", "words and names that the service should expect",
         [](CommandLine& line, const std::string& text) { line.recogniser.prompt = text; }},
        {"--recogniser-authority", "FILE", "certificates to verify the service with, in place of the system's (PEM)",
         [](CommandLine& line, const std::string& text) { line.recogniser.authorityFile = text; }},
        {"--recogniser-timeout", "SECONDS", "the longest the service may take for one utterance (default 60)",
         [](CommandLine& line, const std::string& text) {
             line.recogniser.requestTimeout = seconds("--recogniser-timeout", text, 3600);
         }},
        {"--recogniser-connect-timeout", "SECONDS", "the longest a connection to the service may take (default 5)",
         [](CommandLine& line, const std::string& text) {
             line.recogniser.connectTimeout = seconds("--recogniser-connect-timeout", text, 3600);
         }},
        {"--recogniser-sessions", "N",
         "recognitions at once, files among them (default 64 with http; with pocketsphinx 4 for each processor, of "
         "105 MB each)",
         [](CommandLine& line, const std::string& text) {
             line.recogniser.sessions = static_cast<size_t>(number("--recogniser-sessions", text, 1, 1000000));
         }},
        {"--script", "FILE", "what --recogniser scripted answers (JSON)",
         [](CommandLine& line, const std::string& text) { line.recogniser.script = text; }},
        {"--max-sessions", "N", "streaming sockets in all (default 2000)",
         count("--max-sessions", &ServerOptions::maxSessions)},
        {"--max-sessions-per-user", "N", "streaming sockets of one user (default 8)",
         count("--max-sessions-per-user", &ServerOptions::maxSessionsPerUser)},
        {"--max-connections", "N", "connections in all (default 4096)",
         count("--max-connections", &ServerOptions::maxConnections)},
        {"--max-connections-per-address", "N", "connections from one address (default 256)",
         count("--max-connections-per-address", &ServerOptions::maxConnectionsPerAddress)},
        {"--max-anonymous-per-hour", "N", "anonymous sign-ins from one address (default 60)",
         [](CommandLine& line, const std::string& text) {
             line.server.maxAnonymousPerHour = static_cast<int>(number("--max-anonymous-per-hour", text, 1, 1000000));
         }},
        {"--max-registrations-per-hour", "N", "new accounts from one network (default 20)",
         [](CommandLine& line, const std::string& text) {
             line.server.maxRegistrationsPerHour =
                 static_cast<int>(number("--max-registrations-per-hour", text, 1, 1000000));
         }},
        {"--max-uploads-per-user", "N", "uploads of one user at a time (default 4)",
         count("--max-uploads-per-user", &ServerOptions::maxUploadsPerUser)},
        {"--max-upload-mb", "MB", "the largest recording that may be uploaded, in millions of bytes (default 1500)",
         [](CommandLine& line, const std::string& text) {
             line.server.maxUploadBytes = megabytes("--max-upload-mb", text);
         }},
        {"--max-spool-mb", "MB", "uploaded audio on the disk that waits to be recognised (default 10000)",
         [](CommandLine& line, const std::string& text) {
             line.server.maxSpoolBytes = megabytes("--max-spool-mb", text);
         }},
        {"--file-workers", "N", "uploaded files recognised at once (default half of the processors)",
         [](CommandLine& line, const std::string& text) {
             line.server.fileWorkers = static_cast<unsigned>(number("--file-workers", text, 1, 256));
         }},
        {"--keep-results-hours", "HOURS", "how long the text of an uploaded file is kept (default 192)",
         [](CommandLine& line, const std::string& text) {
             line.server.resultLifetime = std::chrono::hours(number("--keep-results-hours", text, 1, 87600));
         }},
        {"--keep-audio-hours", "HOURS", "how long uploaded audio waits for its recognition (default 48)",
         [](CommandLine& line, const std::string& text) {
             line.server.audioLifetime = std::chrono::hours(number("--keep-audio-hours", text, 1, 87600));
         }},
        {"--idle-timeout", "SECONDS", "close a streaming socket that sends nothing for so long (default 300)",
         [](CommandLine& line, const std::string& text) { line.server.idleTimeout = seconds("--idle-timeout", text); }},
        {"--finish-timeout", "SECONDS", "the longest wait for the last words when a dictation ends (default 60)",
         [](CommandLine& line, const std::string& text) {
             line.server.finishTimeout = seconds("--finish-timeout", text, 3600);
         }},
        {"--drain", "SECONDS",
         "how long dictations may go on when the server is to stop (default 8; 0 ends them at once). A second signal "
         "ends the wait",
         [](CommandLine& line, const std::string& text) {
             line.server.drainTime = std::chrono::seconds(number("--drain", text, 0, 3600));
         }},
        {"--max-session-minutes", "MINUTES", "the longest dictation (default 240)",
         [](CommandLine& line, const std::string& text) {
             line.server.maxSessionTime = std::chrono::minutes(number("--max-session-minutes", text, 1, 1440));
         }},
        {"--verbose", nullptr, "log more", [](CommandLine& line, const std::string&) { line.verbose = true; }},
        {"--version", nullptr, "print the version", [](CommandLine& line, const std::string&) { line.version = true; }},
        {"--help", nullptr, "print this", [](CommandLine& line, const std::string&) { line.help = true; }},
    };
    return all;
}

const Option& find(const std::string& name) {
    for (const auto& option : options()) {
        if (name == option.name)
            return option;
    }
    throw UsageError(name + ": there is no such option; quillo-server --help lists them");
}

} // namespace

CommandLine parseCommandLine(std::span<const char* const> arguments) {
    CommandLine line;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string argument = arguments[i];
        const auto equals = argument.find('=');
        const Option& option = find(argument.substr(0, equals));
        std::string value;
        if (!option.value) {
            if (equals != std::string::npos)
                throw UsageError(std::string(option.name) + ": takes no value");
        } else if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < arguments.size() && !std::string_view(arguments[i + 1]).starts_with("--")) {
            value = arguments[++i];
        } else {
            throw UsageError(std::string(option.name) + ": give " + option.value + " after it");
        }
        option.apply(line, value);
    }
    if (line.help || line.version)
        return line;
    if (line.server.dataFolder.empty())
        line.server.dataFolder = defaultDataFolder();
    if (line.recogniser.kind == RecogniserKind::http && line.recogniser.url.empty())
        throw UsageError("--recogniser http: give the service with --recogniser-url");
    if (line.server.certificateFile.empty() != line.server.keyFile.empty())
        throw UsageError("--certificate and --key: give both, or neither");
    if (line.recogniser.kind != RecogniserKind::http &&
        (!(line.recogniser.path + line.recogniser.prompt + line.recogniser.authorityFile.string()).empty() ||
         !line.recogniser.languages.empty()))
        throw UsageError("--recogniser-path, --recogniser-prompt, --recogniser-languages and --recogniser-authority: "
                         "need --recogniser http");
    if (!line.recogniser.script.empty() && line.recogniser.kind != RecogniserKind::scripted)
        throw UsageError("--script: needs --recogniser scripted");
    return line;
}

std::string helpText() {
    std::string text = "Usage: quillo-server [options]\n"
                       "       quillo-server accounts list | add EMAIL | reset-password EMAIL | delete EMAIL\n\n"
                       "The self-hosted companion of Quillo: accounts and streaming transcription on one port, with "
                       "TLS and without.\nClients trust FOLDER/authority.pem, made on the first start.\n\n";
    for (const auto& option : options()) {
        text += "  " + std::string(option.name) + (option.value ? std::string(" ") + option.value : "") + "\n";
        text += "      " + std::string(option.help) + ".\n";
    }
    text += "\nExit codes: 0 stopped by a signal, 1 could not start (the log says why), 2 wrong options, "
            "3 another server works in the data folder.\n";
    return text;
}

} // namespace quillo::server
