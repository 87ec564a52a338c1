#include "Tasks/FairQueue.h"

#include <algorithm>
#include <tuple>

namespace quillo::server {

std::optional<FairQueue::Item> FairQueue::pop() {
    auto best = users_.end();
    for (auto user = users_.begin(); user != users_.end(); ++user) {
        if (user->second.waiting.empty())
            continue;
        if (best == users_.end() ||
            std::tie(user->second.running, user->second.served) < std::tie(best->second.running, best->second.served))
            best = user;
    }
    if (best == users_.end())
        return std::nullopt;
    Item item{best->first, best->second.waiting.front()};
    best->second.waiting.pop_front();
    ++best->second.running;
    best->second.served = ++turn_;
    return item;
}

void FairQueue::done(const std::string& user) {
    const auto found = users_.find(user);
    if (found == users_.end())
        return;
    --found->second.running;
    forgetIfIdle(user);
}

void FairQueue::remove(const std::string& user) {
    const auto found = users_.find(user);
    if (found == users_.end())
        return;
    found->second.waiting.clear();
    forgetIfIdle(user);
}

bool FairQueue::empty() const {
    return std::ranges::all_of(users_, [](const auto& user) { return user.second.waiting.empty(); });
}

void FairQueue::forgetIfIdle(const std::string& user) {
    const auto found = users_.find(user);
    if (found->second.running == 0 && found->second.waiting.empty())
        users_.erase(found);
}

} // namespace quillo::server
