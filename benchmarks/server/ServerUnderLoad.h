#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>

namespace quillo::benchmark {

/// The real server as a separate process on a free loopback port. Its scripted recogniser answers every chunk with a
/// partial text. The destructor stops it and removes its files.
class ServerUnderLoad {
public:
    /// Throws std::runtime_error when the server does not come up.
    explicit ServerUnderLoad(const std::string& program);
    ~ServerUnderLoad();
    ServerUnderLoad(const ServerUnderLoad&) = delete;
    ServerUnderLoad& operator=(const ServerUnderLoad&) = delete;

    [[nodiscard]] uint16_t port() const { return port_; }
    /// An access token of the anonymous user of a device.
    [[nodiscard]] std::string token(const std::string& device = "load") const;
    /// User and system time so far, in seconds.
    [[nodiscard]] double cpuSeconds() const;
    [[nodiscard]] double residentMegabytes() const;

private:
    std::filesystem::path folder_;
    pid_t process_ = -1;
    uint16_t port_ = 0;
};

/// A connected TCP socket to loopback. Throws std::runtime_error.
int connectTo(uint16_t port);

} // namespace quillo::benchmark
