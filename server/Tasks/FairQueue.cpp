#include "Tasks/FairQueue.h"

#include <algorithm>
#include <tuple>

namespace quillo::server {

std::optional<FairQueue::Item> FairQueue::pop() {
    auto best = m_users.end();
    for (auto user = m_users.begin(); user != m_users.end(); ++user) {
        if (user->second.waiting.empty())
            continue;
        if (best == m_users.end() ||
            std::tie(user->second.running, user->second.served) < std::tie(best->second.running, best->second.served))
            best = user;
    }
    if (best == m_users.end())
        return std::nullopt;
    Item item{best->first, best->second.waiting.front()};
    best->second.waiting.pop_front();
    ++best->second.running;
    best->second.served = ++m_turn;
    return item;
}

void FairQueue::done(const std::string& user) {
    const auto found = m_users.find(user);
    if (found == m_users.end())
        return;
    --found->second.running;
    forgetIfIdle(user);
}

void FairQueue::remove(const std::string& user) {
    const auto found = m_users.find(user);
    if (found == m_users.end())
        return;
    found->second.waiting.clear();
    forgetIfIdle(user);
}

bool FairQueue::empty() const {
    return std::ranges::all_of(m_users, [](const auto& user) { return user.second.waiting.empty(); });
}

void FairQueue::forgetIfIdle(const std::string& user) {
    const auto found = m_users.find(user);
    if (found->second.running == 0 && found->second.waiting.empty())
        m_users.erase(found);
}

} // namespace quillo::server
