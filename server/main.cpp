#include "AccountsCommand.h"
#include "CommandLine.h"
#include "Foundation/Log.h"
#include "RecogniserFactory.h"
#include "Storage/DataFolderLock.h"
#include "Transport/ListeningSocket.h"
#include "Transport/Server.h"

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace quillo::server;

namespace {

constexpr int couldNotStart = 1;
constexpr int wrongOptions = 2;
constexpr int folderInUse = 3;

/// Every connection needs a descriptor; the usual soft limit of 1024 would be reached first.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int serve(CommandLine line) {
    // Block the signals before any thread starts, so that all threads inherit it and only the wait below receives them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    // Let the write report a file-size limit instead.
    std::signal(SIGXFSZ, SIG_IGN);

    if (line.exitWithParent) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        // The parent may have ended before the request.
        if (::getppid() == 1)
            return 0;
    }
    raiseDescriptorLimit();
    if (const auto inherited = inheritedSocket(); inherited && !line.listenGiven)
        line.server.listen = *inherited;

    Server server(line.server, [options = line.recogniser] { return makeRecogniser(options); });
    server.start();
    std::printf("quillo-server ready on %s\n", server.address().c_str());
    std::fflush(stdout);

    int signal = 0;
    sigwait(&signals, &signal);
    log(LogLevel::info, "server", signal == SIGTERM ? "stopping: terminated" : "stopping: interrupted");
    // A second signal means: do not wait for running dictations.
    const std::jthread second([&signals, &server](const std::stop_token& stopped) {
        const timespec step{0, 50'000'000};
        while (!stopped.stop_requested()) {
            if (sigtimedwait(&signals, nullptr, &step) > 0)
                server.hurry();
        }
    });
    server.stop();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::span<const char* const> arguments(argv + 1, static_cast<size_t>(argc > 0 ? argc - 1 : 0));
    if (!arguments.empty() && std::string_view(arguments[0]) == "accounts")
        return runAccountsCommand(arguments.subspan(1));
    CommandLine line;
    try {
        line = parseCommandLine(arguments);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "quillo-server: %s\n", error.what());
        return wrongOptions;
    }
    if (line.help) {
        std::fputs((helpText() + "\n" + accountsHelpText()).c_str(), stdout);
        return 0;
    }
    if (line.version) {
        std::puts("quillo-server " QUILLO_VERSION);
        return 0;
    }
    if (line.verbose)
        setLogThreshold(LogLevel::debug);
    try {
        return serve(std::move(line));
    } catch (const DataFolderInUse& error) {
        std::fprintf(stderr, "quillo-server: %s\n", error.what());
        return folderInUse;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quillo-server: %s\n", error.what());
        return couldNotStart;
    }
}
