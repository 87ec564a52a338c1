#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quillo::server {

/// The addresses, files and limits of a server. The defaults are those of the program.
struct ServerOptions {
    /// "ADDRESS:PORT" with a literal address or "localhost" (port 0: any free one), or "fd:N" for a listening socket
    /// that was inherited.
    std::string listen = "127.0.0.1:48650";
    std::filesystem::path dataFolder;
    /// Names besides localhost that the certificate is valid for.
    std::vector<std::string> hosts;
    /// PEM files to serve TLS with, in place of the server's own authority; both or neither.
    std::filesystem::path certificateFile;
    std::filesystem::path keyFile;
    /// Addresses of reverse proxies whose X-Forwarded-For and X-Forwarded-Proto are trusted.
    std::vector<std::string> trustedProxies;
    bool strictTransportSecurity = false; ///< tells browsers to use only TLS with this host
    bool openRegistration = true;
    bool servesAnonymous = true;
    bool servesMeetings = true;
    /// Serve only programs of this user of the machine.
    std::optional<uid_t> onlyUser;
    unsigned threads = 2;

    size_t maxConnections = 4096;
    size_t maxConnectionsPerAddress = 256;
    size_t maxSessions = 2000;
    size_t maxSessionsPerUser = 8;
    /// Anonymous sign-ins of one address within an hour.
    int maxAnonymousPerHour = 60;
    /// New accounts of one network within an hour.
    int maxRegistrationsPerHour = 20;
    /// Passwords checked at once; each takes the memory given in PasswordHash.h.
    unsigned passwordThreads = 2;
    size_t maxWaitingSignIns = 32;

    size_t maxUploads = 64;
    size_t maxUploadsPerUser = 4;
    uint64_t maxUploadBytes = uint64_t{1500} * 1000 * 1000;
    /// Uploaded audio on the disk that waits for recognition.
    uint64_t maxSpoolBytes = uint64_t{10} * 1000 * 1000 * 1000;
    int maxTasksPerUser = 32;   ///< files that wait or are being recognised
    unsigned fileWorkers = 0;   ///< files recognised at once; 0: half of the processors
    unsigned uploadThreads = 4; ///< that write and check uploads; nothing else waits for them
    std::chrono::seconds resultLifetime = std::chrono::hours(24 * 8);
    std::chrono::seconds audioLifetime = std::chrono::hours(48);      ///< of audio that could not be recognised so far
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(5); ///< for a recogniser without progress

    /// TLS handshake, one request, and each 64 KiB of an upload.
    std::chrono::milliseconds requestTimeout = std::chrono::seconds(15);
    /// An upload is answered after this time even without its text; the client's own limit is 300 s.
    std::chrono::milliseconds answerTimeout = std::chrono::seconds(280);
    std::chrono::milliseconds keepAliveTimeout = std::chrono::seconds(60); ///< between requests
    std::chrono::milliseconds idleTimeout = std::chrono::minutes(5);       ///< streaming, no frame from the client
    std::chrono::milliseconds maxSessionTime = std::chrono::hours(4);
    std::chrono::milliseconds finishTimeout = std::chrono::seconds(60); ///< from end_session to session_ended
    std::chrono::milliseconds writeTimeout = std::chrono::seconds(30);  ///< for the client to accept one frame
    /// How often a client that waits for the last word gets a sign of progress.
    std::chrono::milliseconds finishSign = std::chrono::milliseconds(2500);
    std::chrono::milliseconds busyWait = std::chrono::seconds(4); ///< for a free place in the recogniser
    /// How long dictations may continue when the server stops.
    std::chrono::milliseconds drainTime = std::chrono::seconds(8);
    std::chrono::milliseconds stopTimeout = std::chrono::seconds(3);
    std::chrono::milliseconds signInCheck = std::chrono::seconds(5); ///< of the users of streaming sockets

    size_t maxHeaderBytes = size_t{16} * 1024;
    size_t maxFrameBytes = size_t{1024} * 1024;
    /// Outgoing, per connection. More than the text of a day, so that only slow readers are cut, not long texts.
    size_t maxQueuedBytes = size_t{4} * 1024 * 1024;
    /// Reading stops while the recogniser is further behind than this.
    double maxBacklogSeconds = 30;

    /// Of accounts, codes and tasks.
    std::function<std::chrono::system_clock::time_point()> wallClock = [] { return std::chrono::system_clock::now(); };
    /// Of the bounds on sign-ins.
    std::function<std::chrono::steady_clock::time_point()> steadyClock = [] {
        return std::chrono::steady_clock::now();
    };
};

} // namespace quillo::server
