#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace quillo::server {

/// Orders tasks so that no user waits for all tasks of another. The user with the fewest running tasks comes first,
/// then the one served longest ago; each user's tasks keep their order. Not thread-safe.
class FairQueue {
public:
    struct Item {
        std::string user;
        std::string id;
    };

    void push(const Item& item) { m_users[item.user].waiting.push_back(item.id); }
    /// Adds a task before the user's other tasks.
    void pushFront(const Item& item) { m_users[item.user].waiting.push_front(item.id); }
    /// The next task, which counts as running until `done`.
    std::optional<Item> pop();
    void done(const std::string& user);
    /// Removes the waiting tasks of a user.
    void remove(const std::string& user);
    [[nodiscard]] bool empty() const;

private:
    struct User {
        std::deque<std::string> waiting;
        int running = 0;
        uint64_t served = 0; ///< the turn in which a task was last taken
    };
    void forgetIfIdle(const std::string& user);

    std::map<std::string, User> m_users;
    uint64_t m_turn = 0;
};

} // namespace quillo::server
