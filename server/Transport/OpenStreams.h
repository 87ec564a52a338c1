#pragma once

#include "Transport/ConnectionControl.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillo::server {

/// The open streaming sockets by user, to end them when the user is signed out. Thread-safe.
class OpenStreams : public std::enable_shared_from_this<OpenStreams> {
public:
    /// Registers a socket during its lifetime.
    class Entry {
    public:
        Entry(std::shared_ptr<OpenStreams> streams, uint64_t id) : m_streams(std::move(streams)), m_id(id) {}
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

    private:
        std::shared_ptr<OpenStreams> m_streams;
        uint64_t m_id;
    };

    std::unique_ptr<Entry> add(const std::string& userId, const std::string& signIn,
                               std::shared_ptr<ConnectionControl> control);
    /// The user was removed: ends their sockets.
    void endUser(const std::string& userId);
    /// The user was merged into an account: the sign-in has ended, but a running dictation continues.
    void spareUser(const std::string& userId);
    /// The sign-ins of the open sockets.
    [[nodiscard]] std::vector<std::string> signIns() const;
    /// The sign-in was not found. Ends its sockets at the second call, because a running merge can cause the first.
    void signInMissed(const std::string& signIn);

private:
    struct Stream {
        std::string userId;
        std::string signIn; ///< empty once it is no longer checked
        std::shared_ptr<ConnectionControl> control;
        bool wasMissed = false;
    };

    mutable std::mutex m_mutex;
    std::unordered_map<uint64_t, Stream> m_streams;
    uint64_t m_lastId = 0;
};

} // namespace quillo::server
