#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillo::benchmark {

using Clock = std::chrono::steady_clock;

/// The results of the sessions of one run.
struct LoadResult {
    int started = 0; ///< "session_started" came
    int held = 0;    ///< "session_ended" came with every sample counted
    int64_t chunks = 0;
    std::vector<double> latencies; ///< milliseconds from a chunk to the partial text that answers it
};

/// One dictation over a plain WebSocket (RFC 6455), written by hand so that thousands fit beside the server.
class LoadClient {
public:
    /// Connects and waits for the upgrade. Throws std::runtime_error.
    LoadClient(uint16_t port, const std::string& token);
    ~LoadClient();
    LoadClient(const LoadClient&) = delete;
    LoadClient& operator=(const LoadClient&) = delete;

    [[nodiscard]] int socket() const { return socket_; }
    void start();
    /// A hundred milliseconds of audio.
    void sendChunk(Clock::time_point now);
    void end();
    /// Processes what has arrived; false when the server closed the connection.
    bool receive(Clock::time_point now, LoadResult& result);

private:
    void send(const std::string& text);
    void handle(const std::string& message, Clock::time_point now, LoadResult& result);

    int socket_ = -1;
    std::string received_;
    int64_t chunks_ = 0;
    std::optional<Clock::time_point> unanswered_;
};

} // namespace quillo::benchmark
