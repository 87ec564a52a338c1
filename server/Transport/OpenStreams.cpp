#include "Transport/OpenStreams.h"

#include <set>

namespace quillo::server {

OpenStreams::Entry::~Entry() {
    const std::scoped_lock lock(m_streams->m_mutex);
    m_streams->m_streams.erase(m_id);
}

std::unique_ptr<OpenStreams::Entry> OpenStreams::add(const std::string& userId, const std::string& signIn,
                                                     std::shared_ptr<ConnectionControl> control) {
    const std::scoped_lock lock(m_mutex);
    const uint64_t id = ++m_lastId;
    m_streams.emplace(id, Stream{userId, signIn, std::move(control)});
    return std::make_unique<Entry>(shared_from_this(), id);
}

void OpenStreams::endUser(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    for (const auto& [id, stream] : m_streams) {
        if (stream.userId == userId)
            stream.control->request(ConnectionControl::Request::signOut);
    }
}

void OpenStreams::spareUser(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    for (auto& [id, stream] : m_streams) {
        if (stream.userId == userId)
            stream.signIn.clear();
    }
}

std::vector<std::string> OpenStreams::signIns() const {
    const std::scoped_lock lock(m_mutex);
    std::set<std::string> all;
    for (const auto& [id, stream] : m_streams) {
        if (!stream.signIn.empty())
            all.insert(stream.signIn);
    }
    return {all.begin(), all.end()};
}

void OpenStreams::signInMissed(const std::string& signIn) {
    const std::scoped_lock lock(m_mutex);
    for (auto& [id, stream] : m_streams) {
        if (stream.signIn == signIn && std::exchange(stream.wasMissed, true))
            stream.control->request(ConnectionControl::Request::signOut);
    }
}

} // namespace quillo::server
