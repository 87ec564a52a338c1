#pragma once

#include "Transport/ServerOptions.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace quillo::server {

class Recogniser;

/// The server: accounts over HTTP and streaming transcription over WebSocket on one port, with TLS and without. Runs on
/// its own threads. Several may live in one process.
class Server {
public:
    using MakeRecogniser = std::function<std::shared_ptr<Recogniser>()>;

    Server(ServerOptions options, std::shared_ptr<Recogniser> recogniser);
    /// `makeRecogniser` is called in `start`, once the data folder is this server's. What it throws, `start` throws.
    Server(ServerOptions options, MakeRecogniser makeRecogniser);
    /// Stops.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Creates keys and database if they are missing and begins to accept. Throws std::runtime_error with the cause and
    /// the next step, and DataFolderInUse, without any change, when another server uses the data folder.
    void start();
    /// Stops accepting and warns dictating clients. When they have finished, or after `drainTime`, closes streaming
    /// connections with 1001 and returns when every thread has ended, at most a few seconds later. Idempotent.
    void stop();
    /// Ends the drain of a `stop` running in another thread.
    void hurry();

    [[nodiscard]] uint16_t port() const;
    /// The bound address, such as "127.0.0.1:48650".
    [[nodiscard]] std::string address() const;
    /// The certificate authority that clients trust (PEM).
    [[nodiscard]] std::filesystem::path authorityFile() const;
    /// Connections open at the moment.
    [[nodiscard]] size_t connectionCount() const;
    /// Streaming sockets open at the moment.
    [[nodiscard]] size_t sessionCount() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace quillo::server
