// How fast the server takes uploads, and what each costs in memory: recordings are sent over plain sockets on loopback,
// several at a time, each by another user, and recognised by the scripted recogniser. Client and server share the
// machine.
//
//   UploadLoad [UPLOADS [MEGABYTES]]
//
// QUILLO_SERVER in the environment names another server program.

#include "ServerUnderLoad.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace quillo::benchmark;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

std::string wavOf(size_t bytes, char sample) {
    std::string file(
        "RIFF\xff\xff\xff\xffWAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data\xff\xff\xff\xff", 44);
    file.resize(std::max(bytes, file.size() + 2), sample);
    return file;
}

void sendAll(int socket, const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const auto count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            throw std::runtime_error("the server closed an upload");
        sent += static_cast<size_t>(count);
    }
}

/// Sends one recording; `taken` receives the time until its last byte was accepted. Returns whether a text came back.
bool upload(const ServerUnderLoad& server, const std::string& token, const std::string& file, double& taken) {
    const std::string head = "--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n\r\n";
    const std::string tail = "\r\n--b--\r\n";
    const std::string header =
        "POST /transcription/file HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
        "Content-Type: multipart/form-data; boundary=b\r\nAuthorization: Bearer " +
        token + "\r\nContent-Length: " + std::to_string(head.size() + file.size() + tail.size()) + "\r\n\r\n";
    const int socket = connectTo(server.port());
    const auto begin = Clock::now();
    sendAll(socket, header + head);
    sendAll(socket, file);
    sendAll(socket, tail);
    taken = secondsSince(begin);
    std::string answer;
    char block[4096];
    for (ssize_t count = 0; (count = ::recv(socket, block, sizeof block, 0)) > 0;)
        answer.append(block, static_cast<size_t>(count));
    ::close(socket);
    return answer.starts_with("HTTP/1.1 200");
}

} // namespace

int main(int argc, char** argv) {
    const int uploads = argc > 1 ? std::clamp(std::atoi(argv[1]), 1, 60) : 8;
    const int megabytes = argc > 2 ? std::clamp(std::atoi(argv[2]), 1, 1000) : 50;
    try {
        const char* program = std::getenv("QUILLO_SERVER");
        ServerUnderLoad server(program ? program : QUILLO_SERVER);
        std::vector<std::string> tokens;
        for (int i = 0; i < uploads; ++i)
            tokens.push_back(server.token("load " + std::to_string(i)));
        const std::string file = wavOf(static_cast<size_t>(megabytes) * 1000 * 1000, 1);
        const double emptyMemory = server.residentMegabytes();
        const double cpuBefore = server.cpuSeconds();

        std::vector<double> taken(static_cast<size_t>(uploads));
        std::atomic<int> answered = 0;
        std::atomic<int> running = uploads;
        std::vector<std::thread> clients;
        const auto begin = Clock::now();
        for (size_t i = 0; i < taken.size(); ++i) {
            clients.emplace_back([&, i] {
                try {
                    answered += upload(server, tokens[i], file, taken[i]) ? 1 : 0;
                } catch (const std::exception& error) {
                    std::fprintf(stderr, "UploadLoad: %s\n", error.what());
                }
                --running;
            });
        }
        double mostMemory = emptyMemory;
        while (running > 0) {
            mostMemory = std::max(mostMemory, server.residentMegabytes());
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        for (auto& client : clients)
            client.join();
        const double all = secondsSince(begin);
        const double slowest = *std::max_element(taken.begin(), taken.end());
        const double total = static_cast<double>(uploads) * megabytes;
        std::printf("uploads             %d of %d MB each, %d answered with a text\n", uploads, megabytes,
                    answered.load());
        std::printf("throughput          %.0f MB/s in all until the last byte was taken\n", total / slowest);
        std::printf("until the last text %.1f s\n", all);
        std::printf("server CPU          %.1f ms a MB, recognition included\n",
                    (server.cpuSeconds() - cpuBefore) / total * 1000);
        std::printf("memory              %.1f MB before, %.1f MB more at most, %.2f MB an upload\n", emptyMemory,
                    mostMemory - emptyMemory, (mostMemory - emptyMemory) / uploads);
        return answered == uploads ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "UploadLoad: %s\n", error.what());
        return 1;
    }
}
