#pragma once

#include "Transport/ConnectionControl.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillo::server {

/// The open streaming sockets by their users, to be ended when those are signed out. Thread-safe.
class OpenStreams : public std::enable_shared_from_this<OpenStreams> {
public:
    /// Lists a socket for as long as it lives.
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
    /// The user became part of an account: the sign-in has ended, but what they dictate goes on.
    void spareUser(const std::string& userId);
    /// The sign-ins of the open sockets.
    [[nodiscard]] std::vector<std::string> signIns() const;
    /// The sign-in was not found. Ends its sockets the second time, as the first may be that of a merge under way.
    void signInMissed(const std::string& signIn);

private:
    struct Stream {
        std::string userId;
        std::string signIn; ///< empty once it does not matter
        std::shared_ptr<ConnectionControl> control;
        bool wasMissed = false;
    };

    mutable std::mutex m_mutex;
    std::unordered_map<uint64_t, Stream> m_streams;
    uint64_t m_lastId = 0;
};

} // namespace quillo::server
