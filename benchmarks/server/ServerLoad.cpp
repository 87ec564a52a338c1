// How many dictations the server holds at once: each session sends 100 ms of audio every 100 ms over a plain socket on
// loopback, and is answered with a partial text. Client and server share the machine.
//
//   ServerLoad [SESSIONS [SECONDS]]
//
// QUILLO_SERVER in the environment names another server program.

#include "LoadClient.h"
#include "ServerUnderLoad.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace quillo::benchmark;

namespace {

constexpr auto interval = std::chrono::milliseconds(100);

void raiseDescriptorLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

double percentile(std::vector<double>& values, double share) {
    if (values.empty())
        return 0;
    const auto index = static_cast<size_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

class Run {
public:
    explicit Run(std::vector<std::unique_ptr<LoadClient>>& clients) : clients_(clients), queue_(::epoll_create1(0)) {
        for (auto& client : clients_) {
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.ptr = client.get();
            ::epoll_ctl(queue_, EPOLL_CTL_ADD, client->socket(), &event);
        }
    }
    ~Run() { ::close(queue_); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// Receives until `until`, or until `done`.
    template <class Done>
    void listen(Clock::time_point until, Done done) {
        epoll_event events[256];
        for (auto now = Clock::now(); now < until && !done(); now = Clock::now()) {
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(until - now);
            const int count = ::epoll_wait(queue_, events, 256, static_cast<int>(wait.count()) + 1);
            now = Clock::now();
            for (int i = 0; i < count; ++i) {
                auto* client = static_cast<LoadClient*>(events[i].data.ptr);
                if (!client->receive(now, result))
                    ::epoll_ctl(queue_, EPOLL_CTL_DEL, client->socket(), nullptr);
            }
        }
    }

    /// Sends every session's chunk at its own time within the interval, as independent speakers would.
    void speak(std::chrono::seconds time) {
        const auto begin = Clock::now();
        const auto rounds = time / interval;
        const auto count = static_cast<int>(clients_.size());
        constexpr int slots = 50;
        for (int round = 0; round < rounds; ++round) {
            for (int slot = 0; slot < slots; ++slot) {
                const auto due = begin + interval * round + interval * slot / slots;
                listen(due, [] { return false; });
                late = std::max(late, std::chrono::duration<double, std::milli>(Clock::now() - due).count());
                for (int i = slot; i < count; i += slots)
                    clients_[static_cast<size_t>(i)]->sendChunk(Clock::now());
            }
        }
    }

    LoadResult result;
    double late = 0; ///< how far the sender itself fell behind, milliseconds

private:
    std::vector<std::unique_ptr<LoadClient>>& clients_;
    int queue_;
};

} // namespace

int main(int argc, char** argv) {
    const int sessions = argc > 1 ? std::clamp(std::atoi(argv[1]), 1, 20000) : 1000;
    const std::chrono::seconds time(argc > 2 ? std::clamp(std::atoi(argv[2]), 1, 120) : 10);
    raiseDescriptorLimit();
    try {
        const char* program = std::getenv("QUILLO_SERVER");
        ServerUnderLoad server(program ? program : QUILLO_SERVER);
        const std::string token = server.token();
        const double emptyMemory = server.residentMegabytes();
        std::vector<std::unique_ptr<LoadClient>> clients;
        clients.reserve(static_cast<size_t>(sessions));
        for (int i = 0; i < sessions; ++i)
            clients.push_back(std::make_unique<LoadClient>(server.port(), token));
        const double idleMemory = server.residentMegabytes();

        Run run(clients);
        for (auto& client : clients)
            client->start();
        run.listen(Clock::now() + std::chrono::seconds(20), [&] { return run.result.started == sessions; });
        const double cpuBefore = server.cpuSeconds();
        run.speak(time);
        const double cpu = (server.cpuSeconds() - cpuBefore) / static_cast<double>(time.count());
        const double busyMemory = server.residentMegabytes();
        for (auto& client : clients)
            client->end();
        run.listen(Clock::now() + std::chrono::seconds(20), [&] { return run.result.held == sessions; });

        std::printf("sessions            %d started, %d held to the end with every sample\n", run.result.started,
                    run.result.held);
        std::printf("server CPU          %.2f of %ld cores (%.0f us a chunk)\n", cpu, ::sysconf(_SC_NPROCESSORS_ONLN),
                    cpu / (sessions * 10.0) * 1e6);
        std::printf("chunk to partial    p50 %.2f ms, p99 %.2f ms\n", percentile(run.result.latencies, 0.5),
                    percentile(run.result.latencies, 0.99));
        std::printf("sender behind by    %.1f ms at most\n", run.late);
        std::printf("memory              %.1f MB empty, %.1f kB an idle socket, %.1f kB a running session\n",
                    emptyMemory, (idleMemory - emptyMemory) * 1000 / sessions,
                    (busyMemory - emptyMemory) * 1000 / sessions);
        return run.result.held == sessions ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ServerLoad: %s\n", error.what());
        return 1;
    }
}
