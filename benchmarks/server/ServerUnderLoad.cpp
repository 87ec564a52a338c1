#include "ServerUnderLoad.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillo::benchmark {
namespace {

constexpr const char* script = R"({"words": ["one", "two", "three"], "words_per_second": 10, "words_per_final": 20})";

} // namespace

int connectTo(uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (socket < 0 || ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        if (socket >= 0)
            ::close(socket);
        throw std::runtime_error("cannot connect to the server");
    }
    return socket;
}

ServerUnderLoad::ServerUnderLoad(const std::string& program) {
    std::string name = (std::filesystem::temp_directory_path() / "quillo-load-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("cannot make a temporary folder");
    folder_ = name;
    std::ofstream(folder_ / "script.json") << script;
    int output[2];
    if (::pipe(output) != 0)
        throw std::runtime_error("cannot make a pipe");
    const std::string data = folder_ / "data";
    const std::string scriptFile = folder_ / "script.json";
    process_ = ::fork();
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(output[1], STDOUT_FILENO);
        // Discard the log: with a line per session we would measure the terminal.
        if (!std::freopen("/dev/null", "w", stderr))
            ::_exit(127);
        ::execl(program.c_str(), program.c_str(), "--listen", "127.0.0.1:0", "--data", data.c_str(), "--recogniser",
                "scripted", "--script", scriptFile.c_str(), "--max-connections", "100000",
                "--max-connections-per-address", "100000", "--max-sessions", "100000", "--max-sessions-per-user",
                "100000", nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    std::string line;
    for (char c = 0; ::read(output[0], &c, 1) == 1 && c != '\n';)
        line += c;
    ::close(output[0]);
    const auto colon = line.rfind(':');
    if (colon == std::string::npos)
        throw std::runtime_error("the server did not start: " + program);
    port_ = static_cast<uint16_t>(std::stoul(line.substr(colon + 1)));
}

ServerUnderLoad::~ServerUnderLoad() {
    if (process_ > 0) {
        ::kill(process_, SIGTERM);
        ::waitpid(process_, nullptr, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string ServerUnderLoad::token(const std::string& device) const {
    const std::string body = R"({"device_id":")" + device + "\"}";
    const std::string request =
        "POST /auth/anonymous HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Type: "
        "application/json\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\n\r\n" + body;
    const int socket = connectTo(port_);
    std::string answer;
    if (::send(socket, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
        char block[4096];
        for (ssize_t count = 0; (count = ::recv(socket, block, sizeof block, 0)) > 0;)
            answer.append(block, static_cast<size_t>(count));
    }
    ::close(socket);
    const auto split = answer.find("\r\n\r\n");
    if (split == std::string::npos)
        throw std::runtime_error("the server did not sign in: " + answer);
    return nlohmann::json::parse(answer.substr(split)).at("tokens").at("access_token").get<std::string>();
}

double ServerUnderLoad::cpuSeconds() const {
    std::ifstream file("/proc/" + std::to_string(process_) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    // Fields 14 and 15 of proc(5), counted after the name, which may contain spaces.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field)
        fields >> skipped;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double ServerUnderLoad::residentMegabytes() const {
    std::ifstream file("/proc/" + std::to_string(process_) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

} // namespace quillo::benchmark
