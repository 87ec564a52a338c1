#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace quillo::server {

/// Orders tasks so that no user waits for the whole pile of another: whoever has the fewest running comes first, then
/// whoever was served longest ago; a user's own tasks keep their order. Not thread-safe.
class FairQueue {
public:
    struct Item {
        std::string user;
        std::string id;
    };

    void push(const Item& item) { m_users[item.user].waiting.push_back(item.id); }
    /// In front of the user's other tasks.
    void pushFront(const Item& item) { m_users[item.user].waiting.push_front(item.id); }
    /// The next task, which counts as running until `done`.
    std::optional<Item> pop();
    void done(const std::string& user);
    /// Takes out what waits of a user.
    void remove(const std::string& user);
    [[nodiscard]] bool empty() const;

private:
    struct User {
        std::deque<std::string> waiting;
        int running = 0;
        uint64_t served = 0; ///< turn in which a task was last taken
    };
    void forgetIfIdle(const std::string& user);

    std::map<std::string, User> m_users;
    uint64_t m_turn = 0;
};

} // namespace quillo::server
